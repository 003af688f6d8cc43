#include "Certificates.h"

#include "Bytes.h"

#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <array>
#include <memory>
#include <stdexcept>

namespace {

template <auto Free>
struct Freed {
    template <class T>
    void operator()(T* p) const {
        Free(p);
    }
};
using X509Ptr = std::unique_ptr<X509, Freed<X509_free>>;
using NamePtr = std::unique_ptr<X509_NAME, Freed<X509_NAME_free>>;
using ObjectPtr = std::unique_ptr<ASN1_OBJECT, Freed<ASN1_OBJECT_free>>;
using IntegerPtr = std::unique_ptr<ASN1_INTEGER, Freed<ASN1_INTEGER_free>>;
using StringPtr = std::unique_ptr<ASN1_STRING, Freed<ASN1_STRING_free>>;
using ExtensionPtr = std::unique_ptr<X509_EXTENSION, Freed<X509_EXTENSION_free>>;
using TypePtr = std::unique_ptr<ASN1_TYPE, Freed<ASN1_TYPE_free>>;
using BioPtr = std::unique_ptr<BIO, Freed<BIO_free>>;

void Check(bool ok, const char* call) {
    if (!ok)
        throw std::runtime_error(std::string(call) + " failed");
}

const unsigned char* Data(const std::string& bytes) {
    return reinterpret_cast<const unsigned char*>(bytes.data());
}

ObjectPtr Object(const std::string& oid) {
    ObjectPtr object(OBJ_txt2obj(oid.c_str(), 0));
    Check(object != nullptr, "OBJ_txt2obj");
    return object;
}

template <class T, class Encoder>
std::string Encoded(const T* value, Encoder encode) {
    unsigned char* der = nullptr;
    const int size = encode(value, &der);
    Check(size > 0, "i2d");
    std::string bytes(reinterpret_cast<char*>(der), static_cast<std::size_t>(size));
    OPENSSL_free(der);
    return bytes;
}

/// What stands in a name for the value of an unchecked attribute until the certificate is made: libcrypto
/// would not make it otherwise, and judges T61String by nothing.
Attribute StandIn(const Attribute& attribute) {
    return {attribute.oid, std::string(attribute.value.size(), '#'), V_ASN1_T61STRING, attribute.sameRdn};
}

NamePtr Name(const std::vector<Attribute>& attributes) {
    NamePtr name(X509_NAME_new());
    for (const Attribute& given : attributes) {
        const Attribute attribute = given.unchecked ? StandIn(given) : given;
        Check(X509_NAME_add_entry_by_OBJ(name.get(), Object(attribute.oid).get(), attribute.type,
                                         Data(attribute.value), static_cast<int>(attribute.value.size()), -1,
                                         attribute.sameRdn ? -1 : 0),
              "X509_NAME_add_entry_by_OBJ");
    }
    return name;
}

std::string ShortDer(const Attribute& attribute) {
    return std::string{static_cast<char>(attribute.type), static_cast<char>(attribute.value.size())} +
           attribute.value;
}

/// Puts the values of unchecked attributes in the places of their stand-ins, in the issuer and in the
/// subject. The signature does not fit any more.
void ReplaceStandIns(std::string& der, const std::vector<Attribute>& subject) {
    for (const Attribute& attribute : subject)
        for (int name = 0; attribute.unchecked && name < 2; ++name) {
            const std::string standIn = ShortDer(StandIn(attribute));
            const std::size_t position = der.find(standIn);
            Check(position != std::string::npos, "finding the stand-in");
            der.replace(position, standIn.size(), ShortDer(attribute));
        }
}

EVP_PKEY* NewRsaPssKey() {
    const std::unique_ptr<EVP_PKEY_CTX, Freed<EVP_PKEY_CTX_free>> context(
        EVP_PKEY_CTX_new_from_name(nullptr, "RSA-PSS", nullptr));
    EVP_PKEY* key = nullptr;
    Check(EVP_PKEY_keygen_init(context.get()) > 0 && EVP_PKEY_generate(context.get(), &key) > 0,
          "EVP_PKEY_generate");
    return key;
}

StringPtr Time(const std::string& text) {
    StringPtr time(ASN1_STRING_type_new(text.size() > 13 ? V_ASN1_GENERALIZEDTIME : V_ASN1_UTCTIME));
    ASN1_STRING_set(time.get(), text.data(), static_cast<int>(text.size()));
    return time;
}

void SetRawKey(X509* certificate, const std::string& algorithm, const std::string& bits) {
    auto* copy = static_cast<unsigned char*>(OPENSSL_memdup(bits.data(), bits.size()));
    Check(X509_PUBKEY_set0_param(X509_get_X509_PUBKEY(certificate), OBJ_txt2obj(algorithm.c_str(), 1),
                                 V_ASN1_NULL, nullptr, copy, static_cast<int>(bits.size())),
          "X509_PUBKEY_set0_param");
}

void SetKey(X509* certificate, KeyKind kind) {
    if (kind == KeyKind::BrokenRsa)
        SetRawKey(certificate, "1.2.840.113549.1.1.1", FromHex("30 03 02 01"));
    else if (kind == KeyKind::UnknownAlgorithm)
        SetRawKey(certificate, "1.3.6.1.4.1.99999.7", FromHex("04 01 FF"));
    else
        Check(X509_set_pubkey(certificate, KeyOf(kind)), "X509_set_pubkey");
}

} // namespace

EVP_PKEY* KeyOf(KeyKind kind) {
    static EVP_PKEY* const rsa = EVP_RSA_gen(2048);
    static EVP_PKEY* const ec = EVP_EC_gen("P-256");
    static EVP_PKEY* const pss = NewRsaPssKey();
    switch (kind) {
    case KeyKind::Rsa:
        return rsa;
    case KeyKind::RsaPss:
        return pss;
    case KeyKind::Ec:
        return ec;
    default:
        return nullptr;
    }
}

std::string CertificateOrder::der() const {
    const X509Ptr certificate(X509_new());
    X509* const x = certificate.get();
    X509_set_version(x, version1 ? X509_VERSION_1 : X509_VERSION_3);
    const IntegerPtr number(ASN1_INTEGER_new());
    ASN1_STRING_set(number.get(), serial.data(), static_cast<int>(serial.size()));
    if (negativeSerial)
        number->type |= V_ASN1_NEG;
    X509_set_serialNumber(x, number.get());
    X509_set1_notBefore(x, Time(notBefore).get());
    X509_set1_notAfter(x, Time(notAfter).get());
    const NamePtr name = Name(subject);
    Check(X509_set_subject_name(x, name.get()), "X509_set_subject_name");
    Check(X509_set_issuer_name(x, name.get()), "X509_set_issuer_name");
    SetKey(x, key);
    for (const Extension& extension : extensions) {
        const StringPtr value(ASN1_STRING_type_new(V_ASN1_OCTET_STRING));
        ASN1_STRING_set(value.get(), extension.der.data(), static_cast<int>(extension.der.size()));
        const ExtensionPtr made(
            X509_EXTENSION_create_by_OBJ(nullptr, Object(extension.oid).get(), 0, value.get()));
        Check(made && X509_add_ext(x, made.get(), -1), "X509_add_ext");
    }
    EVP_PKEY* const signer = key == KeyKind::Rsa ? KeyOf(KeyKind::Rsa) : KeyOf(KeyKind::Ec);
    Check(X509_sign(x, signer, EVP_sha256()) > 0, "X509_sign");
    std::string made = Encoded(x, i2d_X509);
    ReplaceStandIns(made, subject);
    return made;
}

std::string GeneratedDer(const std::string& description) {
    const TypePtr value(ASN1_generate_nconf(description.c_str(), nullptr));
    Check(value != nullptr, description.c_str());
    return Encoded(value.get(), i2d_ASN1_TYPE);
}

std::vector<std::string> SystemCertificates() {
    std::vector<std::string> certificates;
    const BioPtr file(BIO_new_file("/etc/ssl/certs/ca-certificates.crt", "r"));
    while (file) {
        const X509Ptr certificate(PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr));
        if (!certificate)
            break;
        certificates.push_back(Encoded(certificate.get(), i2d_X509));
    }
    return certificates;
}

std::vector<std::string> OddCertificates() {
    using namespace std::string_literals;
    std::vector<CertificateOrder> orders(1);
    orders.push_back({.serial = std::string(20, '\xFF')});
    orders.push_back({.serial = "\x80", .negativeSerial = true});
    orders.push_back({.serial = std::string(200, '\x55')});
    orders.push_back({.serial = ""});
    orders.push_back({.version1 = true});
    orders.push_back({.subject = {}});
    orders.push_back({.subject = {{"CN", ""}, {"CN", " "}, {"O", "   "}, {"OU", "\t\r\n"}, {"OU", " x "}}});
    orders.push_back({.subject = {{"CN", "a\0b"s}, {"O", "\x01\x1F\x7F"}, {"L", "<&>\"']]>"}}});
    orders.push_back({.subject = {{"CN", "\xC3\xA9\xE0\xA4\x86\xF0\x9F\x98\x80"}}});
    orders.push_back({.subject = {{"CN", FromHex("00410906"), V_ASN1_BMPSTRING},
                                  {"O", "caf\xE9", V_ASN1_T61STRING},
                                  {"OU", FromHex("0001F600"), V_ASN1_UNIVERSALSTRING},
                                  {"L", "x", V_ASN1_IA5STRING},
                                  {"ST", "12 34", V_ASN1_NUMERICSTRING},
                                  {"title", "p", V_ASN1_PRINTABLESTRING},
                                  {"street", FromHex("A0"), V_ASN1_BIT_STRING},
                                  {"2.5.4.72", FromHex("3003020105"), V_ASN1_SEQUENCE}}});
    orders.push_back({.subject = {{"CN", "caf\xE9", V_ASN1_UTF8STRING, false, true},
                                  {"O", "odd", V_ASN1_BMPSTRING, false, true}}});
    orders.push_back({.subject = {{"CN", std::string(70'000, 'x')}}});
    orders.push_back({.notBefore = "19000101000000Z", .notAfter = "99991231235959Z"});
    orders.push_back({.extensions = {{"1.3.6.1.4.1.99999.1", FromHex("BF8F7F03 9F1F00")},
                                     {"2.5.29.15", FromHex("03020780")}}});
    for (const KeyKind kind : {KeyKind::Rsa, KeyKind::RsaPss, KeyKind::BrokenRsa, KeyKind::UnknownAlgorithm})
        orders.push_back({.key = kind});

    std::vector<std::string> certificates;
    for (const CertificateOrder& order : orders)
        certificates.push_back(order.der());
    return certificates;
}
