#include "FakeToken.h"

struct FailsAtLoad : FakeToken {
    CK_RV Initialize() override { return CKR_DEVICE_ERROR; }
};

FAKE_TOKEN(FailsAtLoad)
