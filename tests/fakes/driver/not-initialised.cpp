#include "FakeToken.h"

struct NotInitialised : FakeToken {
    CK_FLAGS TokenFlags() override { return 0; }
};

FAKE_TOKEN(NotInitialised)
