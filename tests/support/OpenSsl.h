#pragma once

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

/// The deleters of libcrypto's handles for all that is no product: tests, fakes, fuzzers, benchmarks.
struct FreeOpenSsl {
    void operator()(ASN1_OBJECT* object) const { ASN1_OBJECT_free(object); }
    void operator()(ASN1_STRING* text) const { ASN1_STRING_free(text); } ///< and all types that are the same
    void operator()(ASN1_TYPE* value) const { ASN1_TYPE_free(value); }
    void operator()(BIGNUM* number) const { BN_clear_free(number); }
    void operator()(BIO* stream) const { BIO_free_all(stream); }
    void operator()(CMS_ContentInfo* cms) const { CMS_ContentInfo_free(cms); }
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(EVP_PKEY_CTX* context) const { EVP_PKEY_CTX_free(context); }
    void operator()(STACK_OF(X509) * certificates) const { sk_X509_pop_free(certificates, X509_free); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(X509_EXTENSION* extension) const { X509_EXTENSION_free(extension); }
    void operator()(X509_NAME* name) const { X509_NAME_free(name); }
    void operator()(X509_SIG* info) const { X509_SIG_free(info); }
};

template <class Handle>
using Owned = std::unique_ptr<Handle, FreeOpenSsl>;

/// `bytes` as libcrypto takes them.
inline const unsigned char* Octets(std::string_view bytes) {
    return reinterpret_cast<const unsigned char*>(bytes.data());
}

/// The value in `der`, by a function such as d2i_X509; null when `der` is not such a value to its last byte.
template <class Value>
Owned<Value> Decoded(Value* (*decode)(Value**, const unsigned char**, long), std::string_view der) {
    const unsigned char* next = Octets(der);
    Owned<Value> value(decode(nullptr, &next, static_cast<long>(der.size())));
    return next == Octets(der) + der.size() ? std::move(value) : nullptr;
}

/// The DER of `value`, by a function such as i2d_X509; throws std::runtime_error when it has none.
template <class Value>
std::string Encoded(int (*encode)(const Value*, unsigned char**), const Value* value) {
    const int size = encode(value, nullptr);
    if (size <= 0)
        throw std::runtime_error("libcrypto does not encode this value");
    std::string der(static_cast<std::size_t>(size), '\0');
    auto* next = reinterpret_cast<unsigned char*>(der.data());
    encode(value, &next);
    return der;
}

/// The size of the DER value at the begin of `bytes`; 0 when there is none.
inline std::size_t ValueSize(std::string_view bytes) {
    const unsigned char* next = Octets(bytes);
    long length = 0;
    int tag = 0, tagClass = 0;
    const int header = ASN1_get_object(&next, &length, &tag, &tagClass, static_cast<long>(bytes.size()));
    return header & 0x81 ? 0 : static_cast<std::size_t>(next - Octets(bytes) + length);
}

/// A stream that reads `bytes`, which have to outlive it.
inline Owned<BIO> ReaderOf(std::string_view bytes) {
    return Owned<BIO>(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
}

/// What was written into a memory stream.
inline std::string Written(BIO* memory) {
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(memory, &bytes);
    return {bytes, static_cast<std::size_t>(size)};
}
