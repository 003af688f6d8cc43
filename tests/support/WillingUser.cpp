// The selection flow without a window, linked in place of the host's: the user chooses the token's first
// certificate, cancels when there is none, and stays with what has been chosen before. His PIN is in
// QM_USER_PIN, when that is set. What the host does besides can so be tested, fuzzed and measured without
// a display.

#include "QMNativeMessagingHost.h"
#include "TokenManager.h"

#include <cstdlib>

OperationResult QMNativeMessagingHost::ShowSelectCertDialog() {
    if (!selCKA_ID.empty())
        return {true, selCKA_ID};
    if (TokenManager::TokenState < TOKEN_SESSION_OPEN) {
        if (OperationResult opened = tokenManager.TokenOpenSession(); !opened.success)
            return opened;
    }
    tokenManager.BuildTokenCertList();
    if (SelectCertDisplayListCKA_ID.empty())
        return {false, "User Canceled without Selecting Certificate."};
    if (const char* pin = std::getenv("QM_USER_PIN"))
        tokenManager.TokenUserPin = pin;
    selCKA_ID = SelectCertDisplayListCKA_ID.front();
    return {true, selCKA_ID};
}
