#include "FakeToken.h"

struct HasAForeignKeyWithItsId : FakeToken {
    std::vector<Object> MakeObjects() override {
        std::vector<Object> objects = FakeToken::MakeObjects();
        objects.back().attributes[CKA_MODULUS] = Bytes(256, 0xa5);
        return objects;
    }
};

FAKE_TOKEN(HasAForeignKeyWithItsId)
