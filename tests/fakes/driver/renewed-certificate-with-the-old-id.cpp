#include "FakeToken.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

/// The old certificate and the new one have one id, as have two keys; the first of the keys is another
/// certificate's.
struct RenewedCertificateWithTheOldId : FakeToken {
    static Bytes ModulusOf(const Object& certificate) {
        const CK_BYTE* at = certificate.at(CKA_VALUE).data();
        X509* parsed = d2i_X509(nullptr, &at, static_cast<long>(certificate.at(CKA_VALUE).size()));
        BIGNUM* number = nullptr;
        EVP_PKEY_get_bn_param(X509_get0_pubkey(parsed), OSSL_PKEY_PARAM_RSA_N, &number);
        Bytes modulus(static_cast<std::size_t>(BN_num_bytes(number)));
        BN_bn2bin(number, modulus.data());
        BN_free(number);
        X509_free(parsed);
        return modulus;
    }
    std::vector<Object> MakeObjects() override {
        constexpr long kDay = 24L * 3600;
        std::vector<Object> objects = {
            Certificate({0x01}, {.name = "Old", .notBefore = -2 * kDay, .notAfter = -kDay}),
            Certificate({0x01}, {.name = "New"}), PrivateKey({0x01}), PrivateKey({0x01})};
        objects[2][CKA_MODULUS] = Bytes(256, 0xa5);
        objects[3][CKA_MODULUS] = ModulusOf(objects[1]);
        return objects;
    }
    CK_RV SignInit(CK_SESSION_HANDLE session, CK_MECHANISM_TYPE mechanism, CK_OBJECT_HANDLE key) override {
        return key % 1000 == 2 ? CKR_KEY_FUNCTION_NOT_PERMITTED
                               : FakeToken::SignInit(session, mechanism, key);
    }
};

FAKE_TOKEN(RenewedCertificateWithTheOldId)
