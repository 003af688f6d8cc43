#pragma once

#include <memory>
#include <string>
#include <vector>

class wxStaticText;
class wxVListBox;
class wxWindow;
struct AccessibleRows;

/// What screen readers are told of the list of cards: to the desktop, a list whose rows wx draws itself is an
/// empty panel.
class CardListAccessible {
public:
    /// Makes `list`, which must live longer, a list box of this name.
    CardListAccessible(wxVListBox& list, const char* name);
    ~CardListAccessible();
    CardListAccessible(const CardListAccessible&) = delete;
    CardListAccessible& operator=(const CardListAccessible&) = delete;

    /// Puts rows of these texts, in UTF-8, in place of the former ones.
    void SetRows(const std::vector<std::string>& texts);

    /// Tells which row is selected now. While the keyboard is in the list it is read out; where none is
    /// selected, the first, and where there are no rows, the list.
    void TellCurrent();

private:
    std::unique_ptr<AccessibleRows> rows_;
};

/// Tells that `dialog` is one, and that in it `text` is the name of `field`.
void NameDialogField(const wxWindow& dialog, const wxWindow& field, const wxStaticText& text);
