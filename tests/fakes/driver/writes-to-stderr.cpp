#include "FakeToken.h"

#include <cstdio>

struct WritesToStderr : FakeToken {
    CK_RV Initialize() override {
        std::fputs("module: complains\n", stderr);
        return CKR_OK;
    }
};

FAKE_TOKEN(WritesToStderr)
