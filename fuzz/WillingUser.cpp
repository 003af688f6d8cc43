// The selection flow without a window, linked in place of the program's: the user chooses the first
// certificate, or cancels when there is none.

#include "QMNativeMessagingHost.h"
#include "TokenManager.h"
#include "ck/CkJsonObject.h"

#include <memory>

bool QMNativeMessagingHost::bSelCertUIOpen = false;

OperationResult QMNativeMessagingHost::ShowSelectCertDialog() {
    if (TokenManager::TokenState < TOKEN_SESSION_OPEN) {
        if (OperationResult opened = tokenManager.TokenOpenSession(); !opened.success)
            return opened;
    }
    tokenManager.BuildTokenCertList();
    if (SelectCertDisplayListCKA_ID.empty())
        return {false, "User Canceled without Selecting Certificate."};
    selCKA_ID = SelectCertDisplayListCKA_ID.front();
    return {true, selCKA_ID};
}

OperationResult QMNativeMessagingHost::GetSelCertFromToken() {
    if (OperationResult selCertResp = ShowSelectCertDialog(); !selCertResp.success)
        return selCertResp;
    return {true, tokenManager.TokenCertList.ObjectAt(0)->emit()};
}
