#pragma once

#include <wx/htmllbox.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

/// The list of cards. It knows each card in two forms: as it is stored, which is the row's text, and as it is
/// drawn. It opens no file and no address, and knows since when the user has had the cards before their eyes.
class CardList : public wxSimpleHtmlListBox {
public:
    CardList(wxWindow* parent, wxWindowID id, const wxPoint& position, const wxSize& size);

    /// Replaces the rows by cards in UTF-8; shown[i] is how cards[i] is drawn.
    void SetCards(const std::vector<std::string>& cards, const std::vector<std::string>& shown);

    /// From now on the user has not seen the cards.
    void ForgetSeen();
    /// Whether a choice that is made now can be meant for a card: input from before they were drawn, which is
    /// served before drawing, chooses nothing; neither does a double click whose first half may be from then.
    bool MayChoose(bool byDoubleClick) const;

private:
    void OnDrawItem(wxDC& dc, const wxRect& place, std::size_t n) const override;
    wxString OnGetItemMarkup(std::size_t n) const override;
    wxColour GetSelectedTextColour(const wxColour& cardColour) const override { return cardColour; }
    wxHtmlOpeningStatus OnHTMLOpeningURL(wxHtmlURLType, const wxString&, wxString*) const override {
        return wxHTML_BLOCK;
    }

    mutable std::optional<std::chrono::steady_clock::time_point> seenSince_;
};

/// The list of the window as what it is.
inline CardList& CardsOf(wxSimpleHtmlListBox* list) { return static_cast<CardList&>(*list); }

/// The row that is shown while the cards are being read.
inline constexpr char kLoadingRow[] = "<h1 style='text-align:center;'>Loading...</h1>";
