#include "FakeToken.h"

struct LacksHashMechanisms : FakeToken {
    std::vector<CK_MECHANISM_TYPE> Mechanisms() override { return {CKM_RSA_PKCS}; }
};

FAKE_TOKEN(LacksHashMechanisms)
