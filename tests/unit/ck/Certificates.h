#pragma once

#include <openssl/asn1.h>
#include <openssl/evp.h>

#include <string>
#include <vector>

enum class KeyKind {
    Rsa,
    RsaPss,
    Ec,
    BrokenRsa,       ///< the algorithm is RSA, the key is no RSAPublicKey
    UnknownAlgorithm ///< of an algorithm that libcrypto does not know
};

struct Attribute {
    std::string oid; ///< dotted, or a name of OpenSSL's
    std::string value;
    int type = V_ASN1_UTF8STRING; ///< the string type in which `value` stands byte for byte
    bool sameRdn = false;         ///< belongs to the RDN of the attribute before it
    bool unchecked = false;       ///< `value` need not be what `type` says; shorter than 128 bytes, not empty
};

struct Extension {
    std::string oid;
    std::string der; ///< what the extension's OCTET STRING holds
};

/// A certificate to order, however odd, made with libcrypto. Signed with a key of its own; nobody checks
/// that.
struct CertificateOrder {
    std::vector<Attribute> subject = {{"C", "IN"}, {"O", "Example"}, {"CN", "Asha Rao"}};
    std::string serial = "\x01"; ///< magnitude, big-endian
    bool negativeSerial = false;
    bool version1 = false;
    std::string notBefore = "221115000000Z"; ///< UTCTime, or GeneralizedTime when it has a four-digit year
    std::string notAfter = "20521231235959Z";
    std::vector<Extension> extensions = {};
    KeyKind key = KeyKind::Ec;

    std::string der() const;
};

/// The key in the certificates of that kind; null for the kinds that have none.
EVP_PKEY* KeyOf(KeyKind kind);

/// The DER of `PrefixType:value`, as ASN1_generate_nconf(3) describes it.
std::string GeneratedDer(const std::string& description);

/// The certificates that the system trusts, in DER. Empty when package ca-certificates is not there.
std::vector<std::string> SystemCertificates();

/// A certificate of each odd kind that the tests know.
std::vector<std::string> OddCertificates();
