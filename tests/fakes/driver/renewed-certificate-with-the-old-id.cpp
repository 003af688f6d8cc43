#include "FakeToken.h"

#include "support/OpenSsl.h"

#include <openssl/core_names.h>

/// The old certificate and the new one have one id, as have two keys; the first of the keys is another
/// certificate's.
struct RenewedCertificateWithTheOldId : FakeToken {
    static Bytes ModulusOf(const EVP_PKEY* key) {
        BIGNUM* number = nullptr;
        EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_N, &number);
        const Owned<BIGNUM> owned(number);
        Bytes modulus(static_cast<std::size_t>(BN_num_bytes(number)));
        BN_bn2bin(number, modulus.data());
        return modulus;
    }
    std::vector<Object> MakeObjects() override {
        constexpr long kDay = 24L * 3600;
        std::vector<Object> objects = {
            Certificate({0x01}, {.name = "Old", .notBefore = -2 * kDay, .notAfter = -kDay}),
            Certificate({0x01}, {.name = "New"}), PrivateKey({0x01}), PrivateKey({0x01})};
        objects[2].attributes[CKA_MODULUS] = Bytes(256, 0xa5);
        objects[3].attributes[CKA_MODULUS] = ModulusOf(objects[3].key);
        return objects;
    }
    CK_RV SignInit(Session& session, CK_MECHANISM_TYPE mechanism, CK_OBJECT_HANDLE key) override {
        return key % 1000 == 103 ? CKR_KEY_FUNCTION_NOT_PERMITTED
                                 : FakeToken::SignInit(session, mechanism, key);
    }
};

FAKE_TOKEN(RenewedCertificateWithTheOldId)
