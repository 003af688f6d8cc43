#include "FakeToken.h"

#include <csignal>

struct CrashesAtLoad : FakeToken {
    CK_RV Initialize() override {
        std::signal(SIGSEGV, SIG_DFL); // a sanitizer would report it at length
        return std::raise(SIGSEGV) == 0 ? CKR_OK : CKR_GENERAL_ERROR;
    }
};

FAKE_TOKEN(CrashesAtLoad)
