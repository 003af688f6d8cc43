#pragma once

#include "OpenSsl.h"

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
    std::string oid; ///< dotted, or a name of OpenSSL's
    std::string der; ///< what the extension's OCTET STRING holds
    bool isCritical = false;
};

/// The extension `name` ("keyUsage") as OpenSSL's configuration files write its value
/// ("critical,digitalSignature"); throws std::runtime_error when they would not.
Extension Configured(const char* name, const std::string& value);

/// What a user's certificate has: a key usage that signs, and the e-mail address when it is given.
std::vector<Extension> ForSigning(const std::string& email = "");

/// For the validity of a certificate: the time that many seconds from now.
std::string FromNow(long seconds);

/// A certificate to order, however odd, made with libcrypto: self-signed, or signed with another key when it
/// has none that can sign; nobody checks that.
struct CertificateOrder {
    std::vector<Attribute> subject = {
        {"C", "IN", V_ASN1_PRINTABLESTRING}, {"O", "Example"}, {"CN", "Asha Rao"}};
    std::string serial = "\x01"; ///< magnitude, big-endian
    bool negativeSerial = false;
    bool version1 = false;
    std::string notBefore = "221115000000Z"; ///< UTCTime, or GeneralizedTime when it has a four-digit year
    std::string notAfter = "20521231235959Z";
    std::vector<Extension> extensions = {};
    KeyKind key = KeyKind::Ec;
    EVP_PKEY* ownKey = nullptr; ///< in place of one of that kind, when given

    std::string der() const;
};

/// The key in the certificates of that kind, one for the whole process; null for the kinds that have none.
EVP_PKEY* KeyOf(KeyKind kind);

/// The certificates of a PEM file, in DER; none when it cannot be read.
std::vector<std::string> CertificatesIn(const std::string& pemFile);

std::string CertificatePem(const std::string& der);

/// The private key as PEM (PKCS#8) without a password.
std::string PrivateKeyPem(EVP_PKEY* key);

/// The DER of `PrefixType:value`, as ASN1_generate_nconf(3) describes it.
std::string GeneratedDer(const std::string& description);
