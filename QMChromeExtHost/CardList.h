#pragma once

#include "CardListAccessible.h"
#include "QMX509Decoder.h"

#include <wx/htmllbox.h>

#include <string>
#include <vector>

/// The list of cards. It knows each card as it is stored, which is the row's text, and as it is shown: drawn,
/// and read out. It opens no file and no address. OK, its sibling, is enabled while the user has the cards
/// before their eyes, so that input from before chooses nothing.
class CardList : public wxSimpleHtmlListBox {
public:
    CardList(wxWindow* parent, wxWindowID id, const wxPoint& position, const wxSize& size);

    /// Shows "Loading..." in the place of cards.
    void SetLoading();

    /// Replaces the rows by cards in UTF-8; shown[i] is how cards[i] is shown.
    void SetCards(const std::vector<std::string>& cards, std::vector<ShownCard> shown);

    void SetSelection(int row) override;

    /// Disables OK until a card is drawn anew; events that wait are served before. To be called once the
    /// window is shown.
    void ForgetSeen();

private:
    wxWindow* OkButton() const { return GetParent()->FindWindow(wxID_OK); }
    void OnDrawItem(wxDC& dc, const wxRect& place, std::size_t n) const override;
    void OnDrawBackground(wxDC& dc, const wxRect& place, std::size_t n) const override;
    wxString OnGetItemMarkup(std::size_t n) const override;
    void DoClear() override;
    wxColour GetSelectedTextColour(const wxColour& cardColour) const override { return cardColour; }
    wxHtmlOpeningStatus OnHTMLOpeningURL(wxHtmlURLType, const wxString&, wxString*) const override {
        return wxHTML_BLOCK;
    }

    std::vector<ShownCard> shown_; ///< empty while there are no cards
    CardListAccessible accessible_;
    bool pressedOnCards_ = false; ///< whether the last press of the pointer's button met cards that were seen
};

/// The list of the window as what it is.
inline CardList& CardsOf(wxSimpleHtmlListBox* list) { return static_cast<CardList&>(*list); }
