// The user's choice of certificate: the window is shown, filled, and waited for.

#include "QMNativeMessagingHost.h"

#include "CardList.h"
#include "TokenManager.h"
#include "ck/CkJsonObject.h"

#include <wx/app.h>
#include <wx/frame.h>
#include <wx/utils.h>

#include <memory>
#include <stdexcept>

bool QMNativeMessagingHost::bSelCertUIOpen = false;

namespace {

/// How long the wait for the user sleeps between two looks, and how long a fresh window gets to be drawn.
constexpr unsigned long kPauseMilliseconds = 250;

/// How many pauses "Loading..." gets to be drawn: on a screen that is not looked at it never is.
constexpr int kMostPausesToDraw = 8;

void YieldPauseYield() {
    wxYield();
    wxMilliSleep(kPauseMilliseconds);
    wxYield();
}

/// Makes sure that the shown window is to be seen. A window manager that is only now done with the hiding at
/// start-up has withdrawn it again and forgotten that it stays on top.
void BringToFront() {
    SelCertFrame->Raise(); // maps a window anew that was withdrawn
    SelCertFrame->ToggleWindowStyle(wxSTAY_ON_TOP);
    SelCertFrame->ToggleWindowStyle(wxSTAY_ON_TOP);
}

/// Says that the list is being loaded, before the token keeps the window from being drawn. A window that is
/// still being placed is drawn only after that, which can take longer than one pause.
void ShowLoadingRow() {
    const auto& list = static_cast<const CardList&>(*htmlLstCert);
    const unsigned drawnBefore = list.RowsDrawn();
    htmlLstCert->Append(kLoadingRow);
    int pauses = 0;
    do
        YieldPauseYield();
    while (QMNativeMessagingHost::bSelCertUIOpen && list.RowsDrawn() == drawnBefore &&
           ++pauses < kMostPausesToDraw);
}

void HideEmptied() {
    htmlLstCert->Clear();
    SelectCertDisplayListCKA_ID.clear();
    QMNativeMessagingHost::bSelCertUIOpen = false;
    SelCertFrame->Hide();
    wxYield();
}

/// Fills the window's list from the token. False with the reason when no session can be opened.
OperationResult LoadCertificateList() {
    // Hidden at start-up before the window manager had placed it, the window may have come back in a corner,
    // and wx may take it to be one pixel high.
    SelCertFrame->SetSize(kWindowWidth, kWindowHeight);
    SelCertFrame->Centre(wxBOTH);
    const wxBusyCursor busy;
    LogTextToFile("0 Items in Certificate List. Loading List...", DEBUG);
    ShowLoadingRow();
    if (TokenManager::TokenState < TOKEN_SESSION_OPEN) {
        if (OperationResult opened = tokenManager.TokenOpenSession(); !opened.success)
            return opened;
    }
    const std::vector<std::string> CertificateHtmlList = tokenManager.BuildTokenCertList();
    wxArrayString cards;
    for (const std::string& card : CertificateHtmlList)
        cards.Add(wxString::FromUTF8(card));
    htmlLstCert->Clear();
    htmlLstCert->Append(cards);
    LogTextToFile(std::to_string(cards.size()) + " items Loaded in Certificate List.", DEBUG);
    if (!cards.empty())
        htmlLstCert->SetSelection(0);
    return {true, ""};
}

} // namespace

OperationResult QMNativeMessagingHost::ShowSelectCertDialog() {
    try {
        bSelCertUIOpen = true;
        LogTextToFile("Opening Select Certificate Dialog", INFO);
        SelCertFrame->Show();
        YieldPauseYield();
        if (bSelCertUIOpen) // one that has been answered already stays away
            BringToFront();
        if (htmlLstCert->IsEmpty()) {
            if (OperationResult loaded = LoadCertificateList(); !loaded.success) {
                HideEmptied();
                return loaded;
            }
        }
        while (bSelCertUIOpen) {
            wxYield();
            wxMilliSleep(kPauseMilliseconds);
        }
    } catch (...) {
        HideEmptied();
        throw;
    }
    LogTextToFile("Select Certificate Dialog Closed", INFO);
    if (selCKA_ID == "CANCEL")
        return {false, "User Canceled without Selecting Certificate."};
    if (!selCKA_ID.empty())
        return {true, selCKA_ID};
    return {false, "Select Certificate Response Empty."};
}

OperationResult QMNativeMessagingHost::GetSelCertFromToken() {
    try {
        if (OperationResult selCertResp = ShowSelectCertDialog(); !selCertResp.success)
            return selCertResp;
        const int index = tokenManager.TokenCertList.FindObject("CKA_ID", selCKA_ID, true);
        if (index < 0)
            return {false,
                    "GetSelCertFromToken - Selected Key ID Not Found in Certificates List: " + selCKA_ID};
        return {true, tokenManager.TokenCertList.ObjectAt(index)->emit()};
    } catch (const std::exception& e) {
        return Failure("GetSelCertFromToken", e);
    }
}
