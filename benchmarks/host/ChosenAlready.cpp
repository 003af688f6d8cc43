// Stands in for the window in a host whose user has chosen already: the token's first certificate, and the
// PIN in QM_BENCH_PIN. The rest of the host is the host's own, so that what it does for a signature can be
// measured without the window and its fixed pauses.

#include "QMNativeMessagingHost.h"
#include "TokenManager.h"

#include <cstdlib>

OperationResult QMNativeMessagingHost::ShowSelectCertDialog() {
    if (selCKA_ID.empty()) {
        if (OperationResult opened = tokenManager.TokenOpenSession(); !opened.success)
            return opened;
        tokenManager.BuildTokenCertList();
        selCKA_ID = SelectCertDisplayListCKA_ID.at(0);
        if (const char* pin = std::getenv("QM_BENCH_PIN"))
            tokenManager.TokenUserPin = pin;
    }
    return {true, selCKA_ID};
}
