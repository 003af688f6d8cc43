#include "FakeToken.h"

#include "support/OpenSsl.h"

#include <openssl/rsa.h>

struct SignsWithAnotherKey : FakeToken {
    std::vector<Object> MakeObjects() override {
        std::vector<Object> objects = FakeToken::MakeObjects();
        objects.back().key = other.get();
        return objects;
    }
    Owned<EVP_PKEY> other{EVP_RSA_gen(2048)};
};

FAKE_TOKEN(SignsWithAnotherKey)
