#include "CardList.h"

#include <utility>

CardList::CardList(wxWindow* parent, wxWindowID id, const wxPoint& position, const wxSize& size)
    : wxSimpleHtmlListBox(parent, id, position, size) {
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
}

void CardList::SetCards(const std::vector<std::string>& cards, std::vector<std::string> shown) {
    wxArrayString rows;
    for (const std::string& card : cards)
        rows.Add(wxString::FromUTF8(card));
    Clear();
    shown_ = std::move(shown);
    if (!rows.empty())
        Append(rows);
    else
        OkButton()->Enable(); // there is nothing to see or to choose
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

wxString CardList::OnGetItemMarkup(std::size_t n) const {
    return shown_.empty() ? OnGetItem(n) : wxString::FromUTF8(shown_.at(n));
}

void CardList::DoClear() {
    shown_.clear();
    wxSimpleHtmlListBox::DoClear();
}
