#include "FakeToken.h"

struct HoldsCertificatesOfNoUse : FakeToken {
    std::vector<Object> MakeObjects() override {
        constexpr long kDay = 24L * 3600;
        Object broken = Certificate({0x06});
        broken.attributes[CKA_VALUE] = Text("no certificate");
        return {Certificate({0x01}, {.name = "Expired", .notBefore = -2 * kDay, .notAfter = -kDay}),
                Certificate({0x02}, {.name = "Not yet valid", .notBefore = kDay, .notAfter = 2 * kDay}),
                Certificate({0x03}, {.name = "Not RSA", .isRsa = false}),
                Certificate({0x04}, {.name = "For encryption", .keyUsage = "keyEncipherment"}),
                Certificate({0x05}, {.name = "Without key usage", .keyUsage = nullptr}),
                broken};
    }
};

FAKE_TOKEN(HoldsCertificatesOfNoUse)
