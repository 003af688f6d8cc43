#include "SelectionWindow.h"

#include "CardList.h"
#include "QMHostShared.h"

#include <wx/app.h>
#include <wx/frame.h>
#include <wx/utils.h>

void YieldPauseYield() {
    wxYield();
    wxMilliSleep(kPauseMilliseconds);
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
    htmlLstCert->Append(kLoadingRow);
    YieldPauseYield();
    htmlLstCert->Update(); // paints at once
}
