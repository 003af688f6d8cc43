#include "FakeToken.h"

struct IsHardwareWithACaCertificateOnly : FakeToken {
    CK_FLAGS SlotFlags() override { return FakeToken::SlotFlags() | CKF_HW_SLOT; }
    std::vector<Object> MakeObjects() override {
        return {Certificate({0x01}, {.name = "Fake CA", .keyUsage = "keyCertSign,cRLSign", .isCa = true}),
                PrivateKey({0x01})};
    }
};

FAKE_TOKEN(IsHardwareWithACaCertificateOnly)
