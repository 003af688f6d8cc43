#include "FakeToken.h"

struct PinNotSet : FakeToken {
    CK_FLAGS TokenFlags() override { return CKF_TOKEN_INITIALIZED | CKF_LOGIN_REQUIRED; }
    std::vector<Object> MakeObjects() override {
        return {Certificate({0xab, 0xcd, 0x01}, {.notAfter = 60L * 24 * 3600}),
                PrivateKey({0xab, 0xcd, 0x01})};
    }
};

FAKE_TOKEN(PinNotSet)
