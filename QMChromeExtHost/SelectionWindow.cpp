#include "SelectionWindow.h"

#include "CardList.h"
#include "QMHostShared.h"

#include <wx/app.h>
#include <wx/evtloop.h>
#include <wx/frame.h>
#include <wx/gdicmn.h>
#include <wx/sizer.h>

#include <chrono>
#include <cstddef>

namespace {

/// What a window manager draws around a window.
const wxSize kAround(10, 40);

/// Lower windows have no room for a heading, a card and the buttons.
constexpr int kRoomForHeading = 240;

/// Gives the list what the other parts leave of a smaller window, so that the buttons are within reach.
void FitParts(int height) {
    wxSizer& parts = *SelCertFrame->GetSizer();
    htmlLstCert->SetMinSize(wxSize(1, 1));
    for (wxSizerItem* const part : parts.GetChildren())
        part->SetProportion(0);
    wxSizerItem& list = *parts.GetItem(htmlLstCert);
    list.SetProportion(1);
    list.SetFlag(wxALL | wxEXPAND);
    if (height < kRoomForHeading)
        parts.Show(std::size_t{0}, false); // the title says the same
}

} // namespace

void SendToDisplay() {
    // No input of the user is of this category.
    wxEventLoopBase::GetActive()->YieldFor(wxEVT_CATEGORY_CLIPBOARD);
}

void Pause() {
    using namespace std::chrono;
    const auto end = steady_clock::now() + 250ms;
    for (auto left = 250ms; left > 0ms; left = ceil<milliseconds>(end - steady_clock::now()))
        wxEventLoopBase::GetActive()->DispatchTimeout(static_cast<unsigned long>(left.count()));
    SendToDisplay(); // the last of these events may have hidden the window
}

void YieldPauseYield() {
    wxYield();
    Pause();
    wxYield();
}

void PlaceWindow() {
    const wxSize usual(kWindowWidth, kWindowHeight);
    wxSize size = wxGetClientDisplayRect().GetSize() - kAround;
    size.DecTo(usual);
    if (size != usual)
        FitParts(size.y);
    SelCertFrame->SetSize(size);
    SelCertFrame->Centre(wxBOTH);
}

void BringWindowBack() {
    SelCertFrame->Raise(); // maps a window anew that was withdrawn
    SelCertFrame->ToggleWindowStyle(wxSTAY_ON_TOP);
    SelCertFrame->ToggleWindowStyle(wxSTAY_ON_TOP);
}

void ShowLoadingRow() {
    CardsOf(htmlLstCert).SetLoading();
    YieldPauseYield();
    htmlLstCert->Update(); // paints at once
}
