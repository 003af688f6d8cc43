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
#include <utility>

bool QMNativeMessagingHost::bSelCertUIOpen = false;

namespace {

/// How long the wait for the user sleeps between two looks, and how long a fresh window gets to be drawn.
constexpr unsigned long kPauseMilliseconds = 250;

void Yield() {
    wxYield();
    CardsOf(htmlLstCert).NoteSeen();
}

void YieldPauseYield() {
    Yield();
    wxMilliSleep(kPauseMilliseconds);
    Yield();
}

/// Hidden at start-up before the window manager had placed it, the window may have come back in a corner, and
/// wx may take it to be one pixel high.
void Place() {
    SelCertFrame->SetSize(kWindowWidth, kWindowHeight);
    SelCertFrame->Centre(wxBOTH);
}

/// A window manager that was only then done with the hiding at start-up has withdrawn the window again, and
/// forgotten that it stays on top.
void BringBack() {
    SelCertFrame->Raise(); // maps a window anew that was withdrawn
    SelCertFrame->ToggleWindowStyle(wxSTAY_ON_TOP);
    SelCertFrame->ToggleWindowStyle(wxSTAY_ON_TOP);
}

/// Fills the window's list from the token. False with the reason when no session can be opened.
OperationResult LoadCertificateList() {
    const wxBusyCursor busy;
    LogTextToFile("0 Items in Certificate List. Loading List...", DEBUG);
    htmlLstCert->Append(kLoadingRow);
    YieldPauseYield();
    htmlLstCert->Update(); // at once: the token may keep the window from being drawn for long
    if (TokenManager::TokenState < TOKEN_SESSION_OPEN) {
        if (OperationResult opened = tokenManager.TokenOpenSession(); !opened.success) {
            htmlLstCert->Clear();
            QMNativeMessagingHost::bSelCertUIOpen = false;
            return opened;
        }
    }
    const std::vector<std::string> CertificateHtmlList = tokenManager.BuildTokenCertList();
    CardsOf(htmlLstCert).SetCards(CertificateHtmlList, tokenManager.ShownCards);
    LogTextToFile(std::to_string(CertificateHtmlList.size()) + " items Loaded in Certificate List.", DEBUG);
    if (!CertificateHtmlList.empty())
        htmlLstCert->SetSelection(0);
    return {true, ""};
}

} // namespace

OperationResult QMNativeMessagingHost::ShowSelectCertDialog() {
    try {
        bSelCertUIOpen = true;
        CardsOf(htmlLstCert).ForgetSeen();
        LogTextToFile("Opening Select Certificate Dialog", INFO);
        SelCertFrame->Show();
        // Once: afterwards the window stays where the user moves it.
        static bool isFirstShow = true;
        const bool isFirst = std::exchange(isFirstShow, false);
        if (isFirst)
            Place();
        YieldPauseYield();
        if (isFirst && bSelCertUIOpen) // one that has been answered already stays away
            BringBack();
        if (htmlLstCert->IsEmpty()) {
            if (OperationResult loaded = LoadCertificateList(); !loaded.success) {
                SelCertFrame->Hide();
                wxYield();
                return loaded;
            }
        }
        do {
            Yield();
            wxMilliSleep(kPauseMilliseconds);
        } while (bSelCertUIOpen);
    } catch (...) {
        htmlLstCert->Clear();
        bSelCertUIOpen = false;
        SelCertFrame->Hide();
        wxYield();
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
