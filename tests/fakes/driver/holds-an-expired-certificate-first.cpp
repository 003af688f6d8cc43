#include "FakeToken.h"

struct HoldsAnExpiredCertificateFirst : FakeToken {
    std::vector<Object> MakeObjects() override {
        constexpr long kDay = 24L * 3600;
        std::vector<Object> objects = {
            Certificate({0x01}, {.name = "Expired", .notBefore = -2 * kDay, .notAfter = -kDay}),
            Certificate({0x07}, {.name = "Fake CA", .keyUsage = "keyCertSign,cRLSign", .isCa = true}),
            Certificate({0x02}, {.name = "Not yet valid", .notBefore = kDay, .notAfter = 900 * kDay}),
            Certificate({0x03}, {.name = "Valid for a day", .notAfter = kDay}),
            Certificate({0x05}, {.name = "For encryption", .keyUsage = "keyEncipherment"}),
            Certificate({0x04}, {.name = "Valid for a year", .notAfter = 365 * kDay}),
            Certificate({0x06}, {.name = "Not RSA", .isRsa = false}),
            Certificate({0x08}, {.name = "Without a private key", .notAfter = 500 * kDay})};
        for (CK_BYTE id = 1; id <= 6; ++id)
            objects.push_back(PrivateKey({id}));
        return objects;
    }
};

FAKE_TOKEN(HoldsAnExpiredCertificateFirst)
