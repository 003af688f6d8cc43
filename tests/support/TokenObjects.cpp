#include "TokenObjects.h"

#include <openssl/core_names.h>

namespace {

const std::string kYes(1, CK_TRUE);
const std::string kNo(1, CK_FALSE);

std::string KeyPart(const EVP_PKEY* key, const char* name) {
    BIGNUM* number = nullptr;
    EVP_PKEY_get_bn_param(key, name, &number);
    const Owned<BIGNUM> owned(number);
    std::string bytes(static_cast<std::size_t>(BN_num_bytes(number)), '\0');
    BN_bn2bin(number, reinterpret_cast<unsigned char*>(bytes.data()));
    return bytes;
}

} // namespace

std::string NumberValue(CK_ULONG number) { return {reinterpret_cast<const char*>(&number), sizeof number}; }

TokenObject CertificateObject(const std::string& id, const std::string& der) {
    const Owned<X509> certificate = Decoded(d2i_X509, der);
    return {{CKA_CLASS, NumberValue(CKO_CERTIFICATE)},
            {CKA_CERTIFICATE_TYPE, NumberValue(CKC_X_509)},
            {CKA_TOKEN, kYes},
            {CKA_PRIVATE, kNo},
            {CKA_ID, id},
            {CKA_SUBJECT, Encoded(i2d_X509_NAME, X509_get_subject_name(certificate.get()))},
            {CKA_VALUE, der}};
}

TokenObject PrivateKeyObject(const std::string& id, const EVP_PKEY* key) {
    return {{CKA_CLASS, NumberValue(CKO_PRIVATE_KEY)},
            {CKA_KEY_TYPE, NumberValue(CKK_RSA)},
            {CKA_TOKEN, kYes},
            {CKA_PRIVATE, kYes},
            {CKA_SENSITIVE, kYes},
            {CKA_SIGN, kYes},
            {CKA_ID, id},
            {CKA_MODULUS, KeyPart(key, OSSL_PKEY_PARAM_RSA_N)},
            {CKA_PUBLIC_EXPONENT, KeyPart(key, OSSL_PKEY_PARAM_RSA_E)},
            {CKA_PRIVATE_EXPONENT, KeyPart(key, OSSL_PKEY_PARAM_RSA_D)},
            {CKA_PRIME_1, KeyPart(key, OSSL_PKEY_PARAM_RSA_FACTOR1)},
            {CKA_PRIME_2, KeyPart(key, OSSL_PKEY_PARAM_RSA_FACTOR2)},
            {CKA_EXPONENT_1, KeyPart(key, OSSL_PKEY_PARAM_RSA_EXPONENT1)},
            {CKA_EXPONENT_2, KeyPart(key, OSSL_PKEY_PARAM_RSA_EXPONENT2)},
            {CKA_COEFFICIENT, KeyPart(key, OSSL_PKEY_PARAM_RSA_COEFFICIENT1)}};
}
