#include "FakeToken.h"

struct AlwaysAuthenticateKey : FakeToken {
    std::vector<Object> MakeObjects() override {
        std::vector<Object> objects = FakeToken::MakeObjects();
        objects.back().attributes[CKA_ALWAYS_AUTHENTICATE] = {CK_TRUE};
        return objects;
    }
};

FAKE_TOKEN(AlwaysAuthenticateKey)
