#pragma once

#include <wx/htmllbox.h>

#include <string>
#include <vector>

/// The list of cards. It knows each card in two forms: as it is stored, which is the row's text, and as it is
/// drawn. It opens no file and no address. OK, its sibling, is enabled while the user has the cards before
/// their eyes, so that input from before chooses nothing.
class CardList : public wxSimpleHtmlListBox {
public:
    CardList(wxWindow* parent, wxWindowID id, const wxPoint& position, const wxSize& size);

    /// Replaces the rows by cards in UTF-8; shown[i] is how cards[i] is drawn.
    void SetCards(const std::vector<std::string>& cards, std::vector<std::string> shown);

    /// Disables OK until a card is drawn anew; events that wait are served before. To be called once the
    /// window is shown.
    void ForgetSeen();

private:
    wxWindow* OkButton() const { return GetParent()->FindWindow(wxID_OK); }
    void OnDrawItem(wxDC& dc, const wxRect& place, std::size_t n) const override;
    wxString OnGetItemMarkup(std::size_t n) const override;
    void DoClear() override;
    wxColour GetSelectedTextColour(const wxColour& cardColour) const override { return cardColour; }
    wxHtmlOpeningStatus OnHTMLOpeningURL(wxHtmlURLType, const wxString&, wxString*) const override {
        return wxHTML_BLOCK;
    }

    std::vector<std::string> shown_; ///< how the cards are drawn; empty while there are none
    bool pressedOnCards_ = false; ///< whether the last press of the pointer's button met cards that were seen
};

/// The list of the window as what it is.
inline CardList& CardsOf(wxSimpleHtmlListBox* list) { return static_cast<CardList&>(*list); }

/// The row that is shown while the cards are being read.
inline constexpr char kLoadingRow[] = "<h1 style='text-align:center;'>Loading...</h1>";
