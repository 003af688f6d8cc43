#include "FakeToken.h"

struct PinLocked : FakeToken {
    CK_FLAGS TokenFlags() override { return FakeToken::TokenFlags() | CKF_USER_PIN_LOCKED; }
    CK_RV Login(Session&, CK_USER_TYPE, std::string_view) override {
        ++logins;
        return CKR_PIN_LOCKED;
    }
};

FAKE_TOKEN(PinLocked)
