#include "FakeToken.h"

struct IsHardware : FakeToken {
    CK_FLAGS SlotFlags() override { return FakeToken::SlotFlags() | CKF_HW_SLOT; }
};

FAKE_TOKEN(IsHardware)
