#include "FakeToken.h"

#include <unistd.h>

#include <cstdio>

/// In both ways, one of which stays in a buffer.
struct WritesToStdout : FakeToken {
    CK_RV Initialize() override {
        std::printf("module: initialised\n");
        return write(STDOUT_FILENO, "module: hello\n", 14) == 14 ? CKR_OK : CKR_GENERAL_ERROR;
    }
};

FAKE_TOKEN(WritesToStdout)
