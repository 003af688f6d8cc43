#pragma once

#include <wx/htmllbox.h>

/// The list of cards. A card is made of what a certificate says; here it is shown so that no name can pass
/// for another one, open a file or an address, or be more than can be drawn.
class CardList : public wxSimpleHtmlListBox {
public:
    CardList(wxWindow* parent, wxWindowID id, const wxPoint& position, const wxSize& size);

    /// How many times a row has been drawn, by which one sees that the rows are on the screen.
    unsigned RowsDrawn() const { return rowsDrawn_; }

private:
    void OnDrawItem(wxDC& dc, const wxRect& place, std::size_t n) const override;
    wxString OnGetItemMarkup(std::size_t n) const override;
    wxColour GetSelectedTextColour(const wxColour& cardColour) const override { return cardColour; }
    wxHtmlOpeningStatus OnHTMLOpeningURL(wxHtmlURLType, const wxString&, wxString*) const override {
        return wxHTML_BLOCK;
    }

    mutable unsigned rowsDrawn_ = 0;
};

/// The row that is shown while the cards are being read.
inline constexpr char kLoadingRow[] = "<h1 style='text-align:center;'>Loading...</h1>";

/// The markup by which a row is shown: a card's own tags as they are, those that come from its certificate as
/// text, and of each text only as much as says who it is.
wxString ShownMarkup(const wxString& row);
