#include "CardList.h"

#include <wx/dc.h>

#include <string>
#include <utility>

namespace {

/// The row that is shown while the cards are being read, and what it says.
constexpr char kLoadingRow[] = "<h1 style='text-align:center;'>Loading...</h1>";
constexpr char kLoadingText[] = "Loading...";

} // namespace

CardList::CardList(wxWindow* parent, wxWindowID id, const wxPoint& position, const wxSize& size)
    : wxSimpleHtmlListBox(parent, id, position, size), accessible_(*this, "Certificates") {
    // A wxVListBox that was never told its number of rows takes it from uninitialised memory.
    Clear();
    // The cards' own colours are blue, red and black: they want a light ground under every theme.
    SetBackgroundColour(*wxWHITE);
    SetSelectionBackground(wxColour(0xCF, 0xE2, 0xFA));
    // A double click is meant for a card when its first half was.
    Bind(wxEVT_LEFT_DOWN, [this](wxMouseEvent& event) {
        pressedOnCards_ = OkButton()->IsEnabled();
        event.Skip();
    });
    Bind(wxEVT_LEFT_DCLICK, [this](wxMouseEvent& event) { event.Skip(pressedOnCards_); });
    Bind(wxEVT_LISTBOX, [this](wxCommandEvent& event) {
        accessible_.TellCurrent();
        event.Skip();
    });
}

void CardList::SetLoading() {
    Append(kLoadingRow);
    accessible_.SetRows({kLoadingText});
    accessible_.TellCurrent();
}

void CardList::SetCards(const std::vector<std::string>& cards, std::vector<ShownCard> shown) {
    wxArrayString rows;
    for (const std::string& card : cards)
        rows.Add(wxString::FromUTF8(card));
    Clear();
    shown_ = std::move(shown);
    std::vector<std::string> texts;
    for (const ShownCard& card : shown_)
        texts.push_back(card.spoken + ", " + std::to_string(texts.size() + 1) + " of " +
                        std::to_string(shown_.size()));
    accessible_.SetRows(texts);
    if (!rows.empty()) {
        Append(rows);
        return;
    }
    OkButton()->Enable(); // there is nothing to see or to choose
    accessible_.TellCurrent();
}

void CardList::SetSelection(int row) {
    wxSimpleHtmlListBox::SetSelection(row);
    accessible_.TellCurrent();
}

void CardList::ForgetSeen() {
    pressedOnCards_ = false;
    OkButton()->Disable();
    Refresh(); // also where nothing else has them drawn anew
}

void CardList::OnDrawItem(wxDC& dc, const wxRect& place, std::size_t n) const {
    wxSimpleHtmlListBox::OnDrawItem(dc, place, n);
    if (!shown_.empty()) // no "Loading..."
        OkButton()->Enable();
}

void CardList::OnDrawBackground(wxDC& dc, const wxRect& place, std::size_t n) const {
    wxSimpleHtmlListBox::OnDrawBackground(dc, place, n);
    if (!IsSelected(n) || !HasFocus())
        return;
    const wxDCPenChanger pen(dc, wxPen(wxColour(0x1B, 0x4F, 0x9C), 4)); // half of it is outside
    const wxDCBrushChanger brush(dc, *wxTRANSPARENT_BRUSH);
    dc.DrawRectangle(place);
}

wxString CardList::OnGetItemMarkup(std::size_t n) const {
    return shown_.empty() ? OnGetItem(n) : wxString::FromUTF8(shown_.at(n).drawn);
}

void CardList::DoClear() {
    shown_.clear();
    accessible_.SetRows({});
    wxSimpleHtmlListBox::DoClear();
}
