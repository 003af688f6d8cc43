#pragma once

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <cstdint>
#include <memory>
#include <span>

namespace tokendriver {

/// The deleters of libcrypto's handles, in one place.
struct OpenSslFree {
    void operator()(BIO* stream) const { BIO_free(stream); }
    void operator()(BIGNUM* number) const { BN_free(number); }
    void operator()(EVP_PKEY_CTX* operation) const { EVP_PKEY_CTX_free(operation); }
    void operator()(X509* certificate) const { X509_free(certificate); }
};

template <class Handle>
using OpenSslPtr = std::unique_ptr<Handle, OpenSslFree>;

/// The certificate at the begin of `der`; null when there is none.
inline OpenSslPtr<X509> ParseCertificate(std::span<const std::uint8_t> der) {
    const std::uint8_t* at = der.data();
    return OpenSslPtr<X509>(d2i_X509(nullptr, &at, static_cast<long>(der.size())));
}

} // namespace tokendriver
