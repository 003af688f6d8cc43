#include "CardList.h"

#include <wx/clntdata.h>

namespace {

using namespace std::chrono_literals;

/// The two halves of a double click lie up to 0.4 s apart (GTK), and it is noticed up to 0.25 s later.
constexpr auto kDoubleClick = 650ms;

} // namespace

CardList::CardList(wxWindow* parent, wxWindowID id, const wxPoint& position, const wxSize& size)
    : wxSimpleHtmlListBox(parent, id, position, size) {
    // A wxVListBox that was never told its number of rows takes it from uninitialised memory.
    Clear();
    // The cards' own colours are blue, red and black: they want a light ground under every theme.
    SetBackgroundColour(*wxWHITE);
    SetSelectionBackground(wxColour(0xCF, 0xE2, 0xFA));
}

void CardList::SetCards(const std::vector<std::string>& cards, const std::vector<std::string>& shown) {
    wxArrayString rows;
    std::vector<wxClientData*> markups; // the list owns them
    for (std::size_t i = 0; i < cards.size(); ++i) {
        rows.Add(wxString::FromUTF8(cards[i]));
        markups.push_back(new wxStringClientData(wxString::FromUTF8(shown[i])));
    }
    Clear();
    if (!rows.empty())
        Append(rows, markups.data());
}

void CardList::ForgetSeen() { seenSince_.reset(); }

bool CardList::MayChoose(bool byDoubleClick) const {
    return seenSince_ && (!byDoubleClick || std::chrono::steady_clock::now() - *seenSince_ > kDoubleClick);
}

void CardList::OnDrawItem(wxDC& dc, const wxRect& place, std::size_t n) const {
    wxSimpleHtmlListBox::OnDrawItem(dc, place, n);
    if (HasClientObjectData() && !seenSince_) // "Loading..." has none
        seenSince_ = std::chrono::steady_clock::now();
}

wxString CardList::OnGetItemMarkup(std::size_t n) const {
    if (!HasClientObjectData())
        return OnGetItem(n);
    return static_cast<wxStringClientData*>(GetClientObject(static_cast<unsigned>(n)))->GetData();
}
