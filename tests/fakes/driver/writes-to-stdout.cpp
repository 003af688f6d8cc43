#include "FakeToken.h"

#include <unistd.h>

#include <cstdio>

struct WritesToStdout : FakeToken {
    CK_RV Initialize() override { return Write(); }
    CK_RV Finalize() override { return Write(); }
    CK_RV OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, CK_SESSION_HANDLE& session) override {
        Write();
        return FakeToken::OpenSession(slot, flags, session);
    }

    /// In both ways, one of which stays in a buffer.
    static CK_RV Write() {
        std::printf("module: buffered\n");
        return write(STDOUT_FILENO, "module: hello\n", 14) == 14 ? CKR_OK : CKR_GENERAL_ERROR;
    }
};

FAKE_TOKEN(WritesToStdout)
