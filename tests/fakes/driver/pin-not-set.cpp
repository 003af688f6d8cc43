#include "FakeToken.h"

struct PinNotSet : FakeToken {
    CK_FLAGS TokenFlags() override { return CKF_TOKEN_INITIALIZED | CKF_LOGIN_REQUIRED; }
};

FAKE_TOKEN(PinNotSet)
