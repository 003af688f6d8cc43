#pragma once

// Private to ck/: the owners of libcrypto's handles, and the one place where its errors become words.

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>
#include <string>

struct OpenSslDeleter {
    void operator()(X509* p) const { X509_free(p); }
    void operator()(ASN1_OBJECT* p) const { ASN1_OBJECT_free(p); }
    void operator()(ASN1_STRING* p) const {
        ASN1_STRING_free(p);
    } ///< and ASN1_BIT_STRING, which is the same type
    void operator()(BIO* p) const { BIO_free(p); }
    void operator()(GENERAL_NAMES* p) const { GENERAL_NAMES_free(p); }
    void operator()(unsigned char* p) const { OPENSSL_free(p); } ///< buffers that libcrypto allocated
};

template <class T>
using OpenSslPtr = std::unique_ptr<T, OpenSslDeleter>;

/// Empties the thread's error queue where its scope begins and where it ends, so that what is described in
/// between belongs to the calls in it and nothing is left for others.
class OpenSslErrors {
public:
    OpenSslErrors();
    ~OpenSslErrors();
    OpenSslErrors(const OpenSslErrors&) = delete;
    OpenSslErrors& operator=(const OpenSslErrors&) = delete;

    /// Why `call`, the function that failed, did: "d2i_X509: field missing (Field=cert_info, Type=X509)".
    std::string Describe(const char* call) const;
};

/// The dotted form of `object`: "1.2.840.113549.1.1.1".
std::string DottedOid(const ASN1_OBJECT* object);
