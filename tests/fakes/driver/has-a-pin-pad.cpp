#include "FakeToken.h"

/// The PIN is typed on the reader: any PIN that comes from the computer is refused.
struct HasAPinPad : FakeToken {
    CK_FLAGS TokenFlags() override { return FakeToken::TokenFlags() | CKF_PROTECTED_AUTHENTICATION_PATH; }
    CK_RV Login(Session& session, CK_USER_TYPE user, std::string_view typed) override {
        return typed.data() == nullptr ? FakeToken::Login(session, user, pin) : CKR_ARGUMENTS_BAD;
    }
};

FAKE_TOKEN(HasAPinPad)
