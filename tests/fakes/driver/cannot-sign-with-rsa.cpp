#include "FakeToken.h"

struct CannotSignWithRsa : FakeToken {
    std::vector<CK_MECHANISM_TYPE> Mechanisms() override { return {CKM_ECDSA}; }
};

FAKE_TOKEN(CannotSignWithRsa)
