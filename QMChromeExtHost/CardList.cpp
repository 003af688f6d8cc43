#include "CardList.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

namespace {

/// The tags of a card in their order. A valid certificate's card leaves out the first of the two
/// style='font-size...', an expired one's the second.
constexpr std::array<std::wstring_view, 14> kCardTags = {
    L"<div style='font-family:verdana;'>",
    L"<span style='color:blue;'>",
    L"<b>",
    L"</b>",
    L"</span>",
    L"<br>",
    L"<br>",
    L"<span style='font-size:80%;color:red'>",
    L"<span style='font-size:80%;'>",
    L"<b>",
    L"</b>",
    L"</span>",
    L"</div>",
    L"<hr>",
};

/// Names have 64 characters at most (RFC 5280 appendix A.1, ub-common-name); wx takes its time with much
/// longer ones.
constexpr std::size_t kMaxShownText = 200;

} // namespace

CardList::CardList(wxWindow* parent, wxWindowID id, const wxPoint& position, const wxSize& size)
    : wxSimpleHtmlListBox(parent, id, position, size) {
    // A wxVListBox that was never told its number of rows takes it from uninitialised memory.
    Clear();
    // The cards' own colours are blue, red and black: they want a light ground under every theme.
    SetBackgroundColour(*wxWHITE);
    SetSelectionBackground(wxColour(0xCF, 0xE2, 0xFA));
}

void CardList::OnDrawItem(wxDC& dc, const wxRect& place, std::size_t n) const {
    wxSimpleHtmlListBox::OnDrawItem(dc, place, n);
    ++rowsDrawn_;
}

wxString CardList::OnGetItemMarkup(std::size_t n) const { return ShownMarkup(OnGetItem(n)); }

wxString ShownMarkup(const wxString& row) {
    if (row == kLoadingRow)
        return row;
    const std::wstring& text = row.ToStdWstring();
    std::wstring shown;
    const auto* next = kCardTags.begin();
    std::size_t shownText = 0; // since the last tag
    for (std::wstring_view rest = text; !rest.empty();) {
        const auto* const end = next + std::min<std::ptrdiff_t>(2, kCardTags.end() - next);
        const auto* const tag =
            std::find_if(next, end, [&](std::wstring_view own) { return rest.starts_with(own); });
        if (tag != end) {
            shown += *tag;
            rest.remove_prefix(tag->size());
            next = tag + 1;
            shownText = 0;
            continue;
        }
        if (shownText < kMaxShownText)
            shown += rest.front() == L'<' ? L"&lt;" : std::wstring(1, rest.front());
        else if (shownText == kMaxShownText)
            shown += L"\u2026";
        rest.remove_prefix(1);
        ++shownText;
    }
    return shown;
}
