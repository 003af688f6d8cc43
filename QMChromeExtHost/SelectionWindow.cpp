#include "SelectionWindow.h"

#include "CardList.h"
#include "QMHostShared.h"

#include <wx/app.h>
#include <wx/evtloop.h>
#include <wx/frame.h>

#include <chrono>

void Pause() {
    using namespace std::chrono;
    const auto end = steady_clock::now() + 250ms;
    for (auto left = 250ms; left > 0ms; left = ceil<milliseconds>(end - steady_clock::now()))
        wxEventLoopBase::GetActive()->DispatchTimeout(static_cast<unsigned long>(left.count()));
}

void YieldPauseYield() {
    wxYield();
    Pause();
    wxYield();
}

void PlaceWindow() {
    SelCertFrame->SetSize(kWindowWidth, kWindowHeight);
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
