#include "FakeToken.h"

struct NoTokenInfoAfterLogin : FakeToken {
    std::vector<Object> MakeObjects() override {
        std::vector<Object> objects = FakeToken::MakeObjects();
        objects.back().attributes[CKA_ALWAYS_AUTHENTICATE] = {CK_TRUE};
        return objects;
    }
    CK_RV GetTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO& info) override {
        return loggedIn ? CKR_DEVICE_ERROR : FakeToken::GetTokenInfo(slot, info);
    }
};

FAKE_TOKEN(NoTokenInfoAfterLogin)
