// Fills an initialised token: certificates for one RSA 2048 key, all valid and all meant to sign, and that
// key once for each. The first certificate is written to a PEM file as well. The CKA_ID of the n-th is n,
// counted from 1, in 20 bytes.
//
//   bench-fill-token <module> <pin> <number of certificates> <PEM file>

#include "../reference/Token.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>

namespace {

using Bytes = ReferenceToken::Bytes;

struct Free {
    void operator()(BIGNUM* number) const { BN_clear_free(number); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(std::FILE* file) const { std::fclose(file); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(X509_EXTENSION* extension) const { X509_EXTENSION_free(extension); }
};

void AddName(X509_NAME* name, const char* field, const std::string& value) {
    X509_NAME_add_entry_by_txt(name, field, MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(value.c_str()), -1, -1, 0);
}

void AddExtension(X509* certificate, int nid, const char* value) {
    const std::unique_ptr<X509_EXTENSION, Free> extension(X509V3_EXT_conf_nid(nullptr, nullptr, nid, value));
    X509_add_ext(certificate, extension.get(), -1);
}

std::unique_ptr<X509, Free> MakeCertificate(EVP_PKEY* key, int number) {
    std::unique_ptr<X509, Free> certificate(X509_new());
    X509* const x = certificate.get();
    X509_set_version(x, X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(x), 0x51000000 + number);
    ASN1_TIME_set_string_X509(X509_getm_notBefore(x), "20200101000000Z");
    ASN1_TIME_set_string_X509(X509_getm_notAfter(x), "20991231235959Z");
    X509_NAME* const name = X509_get_subject_name(x);
    AddName(name, "C", "IN");
    AddName(name, "O", "Quillmark Benchmark");
    AddName(name, "CN", "Signer " + std::to_string(number));
    X509_set_issuer_name(x, name);
    X509_set_pubkey(x, key);
    AddExtension(x, NID_basic_constraints, "critical,CA:FALSE");
    AddExtension(x, NID_key_usage, "critical,digitalSignature,nonRepudiation");
    AddExtension(x, NID_subject_alt_name, "email:signer@example.com");
    if (X509_sign(x, key, EVP_sha256()) == 0)
        throw std::runtime_error("X509_sign");
    return certificate;
}

template <typename Value>
CK_ATTRIBUTE Attribute(CK_ATTRIBUTE_TYPE type, Value& value) {
    return {type, &value, sizeof value};
}

CK_ATTRIBUTE Attribute(CK_ATTRIBUTE_TYPE type, Bytes& value) { return {type, value.data(), value.size()}; }

CK_BBOOL yes = CK_TRUE;

void AddKey(ReferenceToken& token, EVP_PKEY* key, Bytes id) {
    const auto part = [key](const char* name) {
        BIGNUM* number = nullptr;
        EVP_PKEY_get_bn_param(key, name, &number);
        const std::unique_ptr<BIGNUM, Free> owned(number);
        Bytes bytes(static_cast<std::size_t>(BN_num_bytes(number)));
        BN_bn2bin(number, bytes.data());
        return bytes;
    };
    CK_OBJECT_CLASS keyClass = CKO_PRIVATE_KEY;
    CK_KEY_TYPE keyType = CKK_RSA;
    Bytes modulus = part(OSSL_PKEY_PARAM_RSA_N), publicExponent = part(OSSL_PKEY_PARAM_RSA_E),
          privateExponent = part(OSSL_PKEY_PARAM_RSA_D), prime1 = part(OSSL_PKEY_PARAM_RSA_FACTOR1),
          prime2 = part(OSSL_PKEY_PARAM_RSA_FACTOR2), exponent1 = part(OSSL_PKEY_PARAM_RSA_EXPONENT1),
          exponent2 = part(OSSL_PKEY_PARAM_RSA_EXPONENT2),
          coefficient = part(OSSL_PKEY_PARAM_RSA_COEFFICIENT1);
    token.Create({Attribute(CKA_CLASS, keyClass), Attribute(CKA_KEY_TYPE, keyType), Attribute(CKA_TOKEN, yes),
                  Attribute(CKA_PRIVATE, yes), Attribute(CKA_SENSITIVE, yes), Attribute(CKA_SIGN, yes),
                  Attribute(CKA_ID, id), Attribute(CKA_MODULUS, modulus),
                  Attribute(CKA_PUBLIC_EXPONENT, publicExponent),
                  Attribute(CKA_PRIVATE_EXPONENT, privateExponent), Attribute(CKA_PRIME_1, prime1),
                  Attribute(CKA_PRIME_2, prime2), Attribute(CKA_EXPONENT_1, exponent1),
                  Attribute(CKA_EXPONENT_2, exponent2), Attribute(CKA_COEFFICIENT, coefficient)});
}

void AddCertificate(ReferenceToken& token, X509* certificate, Bytes id) {
    CK_OBJECT_CLASS certificateClass = CKO_CERTIFICATE;
    CK_CERTIFICATE_TYPE certificateType = CKC_X_509;
    Bytes value(static_cast<std::size_t>(i2d_X509(certificate, nullptr)));
    unsigned char* cursor = value.data();
    i2d_X509(certificate, &cursor);
    Bytes subject(static_cast<std::size_t>(i2d_X509_NAME(X509_get_subject_name(certificate), nullptr)));
    cursor = subject.data();
    i2d_X509_NAME(X509_get_subject_name(certificate), &cursor);
    token.Create({Attribute(CKA_CLASS, certificateClass), Attribute(CKA_CERTIFICATE_TYPE, certificateType),
                  Attribute(CKA_TOKEN, yes), Attribute(CKA_SUBJECT, subject), Attribute(CKA_ID, id),
                  Attribute(CKA_VALUE, value)});
}

Bytes Id(int number) {
    Bytes id(20);
    for (std::size_t i = 0; i < sizeof number; ++i)
        id[id.size() - 1 - i] = static_cast<unsigned char>(number >> (8 * i));
    return id;
}

} // namespace

int main(int argc, char** argv) try {
    if (argc != 5)
        return 2;
    ReferenceToken token(argv[1]);
    token.Login(CKU_USER, argv[2]);
    const std::unique_ptr<EVP_PKEY, Free> key(EVP_RSA_gen(2048));
    const int count = std::atoi(argv[3]);
    for (int number = 1; number <= count; ++number) {
        const std::unique_ptr<X509, Free> certificate = MakeCertificate(key.get(), number);
        AddCertificate(token, certificate.get(), Id(number));
        AddKey(token, key.get(), Id(number));
        if (number == 1) {
            const std::unique_ptr<std::FILE, Free> file(std::fopen(argv[4], "w"));
            if (!file || PEM_write_X509(file.get(), certificate.get()) == 0)
                throw std::runtime_error("the PEM file cannot be written");
        }
    }
    return 0;
} catch (const std::exception& e) {
    std::fprintf(stderr, "bench-fill-token: %s\n", e.what());
    return 1;
}
