#include "Certificates.h"

#include "Bytes.h"

#include <openssl/pem.h>
#include <openssl/rsa.h>

namespace {

void Check(bool ok, const char* call) {
    if (!ok)
        throw std::runtime_error(std::string(call) + " failed");
}

Owned<ASN1_OBJECT> Object(const std::string& oid) {
    Owned<ASN1_OBJECT> object(OBJ_txt2obj(oid.c_str(), 0));
    Check(object != nullptr, "OBJ_txt2obj");
    return object;
}

/// What stands in a name for the value of an unchecked attribute until the certificate is made: libcrypto
/// would not make it otherwise, and judges T61String by nothing.
Attribute StandIn(const Attribute& attribute) {
    return {attribute.oid, std::string(attribute.value.size(), '#'), V_ASN1_T61STRING, attribute.sameRdn};
}

Owned<X509_NAME> Name(const std::vector<Attribute>& attributes) {
    Owned<X509_NAME> name(X509_NAME_new());
    for (const Attribute& given : attributes) {
        const Attribute attribute = given.unchecked ? StandIn(given) : given;
        Check(X509_NAME_add_entry_by_OBJ(name.get(), Object(attribute.oid).get(), attribute.type,
                                         Octets(attribute.value), static_cast<int>(attribute.value.size()),
                                         -1, attribute.sameRdn ? -1 : 0),
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

Owned<EVP_PKEY> NewRsaPssKey() {
    const Owned<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new_from_name(nullptr, "RSA-PSS", nullptr));
    EVP_PKEY* key = nullptr;
    Check(EVP_PKEY_keygen_init(context.get()) > 0 && EVP_PKEY_generate(context.get(), &key) > 0,
          "EVP_PKEY_generate");
    return Owned<EVP_PKEY>(key);
}

Owned<ASN1_STRING> Time(const std::string& text) {
    Owned<ASN1_STRING> time(ASN1_STRING_type_new(text.size() > 13 ? V_ASN1_GENERALIZEDTIME : V_ASN1_UTCTIME));
    ASN1_STRING_set(time.get(), text.data(), static_cast<int>(text.size()));
    return time;
}

void SetRawKey(X509* certificate, const std::string& algorithm, const std::string& bits) {
    auto* copy = static_cast<unsigned char*>(OPENSSL_memdup(bits.data(), bits.size()));
    Check(X509_PUBKEY_set0_param(X509_get_X509_PUBKEY(certificate), OBJ_txt2obj(algorithm.c_str(), 1),
                                 V_ASN1_NULL, nullptr, copy, static_cast<int>(bits.size())),
          "X509_PUBKEY_set0_param");
}

void SetKey(X509* certificate, KeyKind kind, EVP_PKEY* key) {
    if (key != nullptr)
        Check(X509_set_pubkey(certificate, key), "X509_set_pubkey");
    else if (kind == KeyKind::BrokenRsa)
        SetRawKey(certificate, "1.2.840.113549.1.1.1", FromHex("30 03 02 01"));
    else
        SetRawKey(certificate, "1.3.6.1.4.1.99999.7", FromHex("04 01 FF"));
}

} // namespace

EVP_PKEY* KeyOf(KeyKind kind) {
    switch (kind) {
    case KeyKind::Rsa: {
        static const Owned<EVP_PKEY> rsa(EVP_RSA_gen(2048));
        return rsa.get();
    }
    case KeyKind::RsaPss: {
        static const Owned<EVP_PKEY> pss = NewRsaPssKey();
        return pss.get();
    }
    case KeyKind::Ec: {
        static const Owned<EVP_PKEY> ec(EVP_EC_gen("P-256"));
        return ec.get();
    }
    default:
        return nullptr;
    }
}

std::vector<std::string> CertificatesIn(const std::string& pemFile) {
    std::vector<std::string> certificates;
    const Owned<BIO> file(BIO_new_file(pemFile.c_str(), "r"));
    while (file) {
        const Owned<X509> certificate(PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr));
        if (!certificate)
            break;
        certificates.push_back(Encoded(i2d_X509, certificate.get()));
    }
    return certificates;
}

std::string CertificatePem(const std::string& der) {
    const Owned<BIO> text(BIO_new(BIO_s_mem()));
    Check(PEM_write_bio(text.get(), PEM_STRING_X509, "", Octets(der), static_cast<long>(der.size())) > 0,
          "PEM_write_bio");
    return Written(text.get());
}

std::string PrivateKeyPem(EVP_PKEY* key) {
    const Owned<BIO> text(BIO_new(BIO_s_mem()));
    Check(PEM_write_bio_PrivateKey(text.get(), key, nullptr, nullptr, 0, nullptr, nullptr) > 0,
          "PEM_write_bio_PrivateKey");
    return Written(text.get());
}

Extension Configured(const char* name, const std::string& value) {
    const Owned<X509_EXTENSION> made(X509V3_EXT_conf(nullptr, nullptr, name, value.c_str()));
    Check(made != nullptr, name);
    const ASN1_OCTET_STRING* der = X509_EXTENSION_get_data(made.get());
    return {name, {der->data, der->data + der->length}, X509_EXTENSION_get_critical(made.get()) != 0};
}

std::vector<Extension> ForSigning(const std::string& email) {
    std::vector<Extension> extensions = {Configured("keyUsage", "critical,digitalSignature")};
    if (!email.empty())
        extensions.push_back(Configured("subjectAltName", "email:" + email));
    return extensions;
}

std::string FromNow(long seconds) {
    const Owned<ASN1_TIME> time(X509_gmtime_adj(nullptr, seconds));
    return {time->data, time->data + time->length};
}

std::string CertificateOrder::der() const {
    const Owned<X509> certificate(X509_new());
    X509* const x = certificate.get();
    X509_set_version(x, version1 ? X509_VERSION_1 : X509_VERSION_3);
    const Owned<ASN1_INTEGER> number(ASN1_INTEGER_new());
    ASN1_STRING_set(number.get(), serial.data(), static_cast<int>(serial.size()));
    if (negativeSerial)
        number->type |= V_ASN1_NEG;
    X509_set_serialNumber(x, number.get());
    X509_set1_notBefore(x, Time(notBefore).get());
    X509_set1_notAfter(x, Time(notAfter).get());
    const Owned<X509_NAME> name = Name(subject);
    Check(X509_set_subject_name(x, name.get()), "X509_set_subject_name");
    Check(X509_set_issuer_name(x, name.get()), "X509_set_issuer_name");
    EVP_PKEY* const pair = ownKey ? ownKey : KeyOf(key);
    SetKey(x, key, pair);
    for (const Extension& extension : extensions) {
        const Owned<ASN1_STRING> value(ASN1_STRING_type_new(V_ASN1_OCTET_STRING));
        ASN1_STRING_set(value.get(), extension.der.data(), static_cast<int>(extension.der.size()));
        const Owned<X509_EXTENSION> made(X509_EXTENSION_create_by_OBJ(nullptr, Object(extension.oid).get(),
                                                                      extension.isCritical, value.get()));
        Check(made && X509_add_ext(x, made.get(), -1), "X509_add_ext");
    }
    Check(X509_sign(x, pair ? pair : KeyOf(KeyKind::Ec), EVP_sha256()) > 0, "X509_sign");
    std::string made = Encoded(i2d_X509, x);
    ReplaceStandIns(made, subject);
    return made;
}

std::string GeneratedDer(const std::string& description) {
    const Owned<ASN1_TYPE> value(ASN1_generate_nconf(description.c_str(), nullptr));
    Check(value != nullptr, description.c_str());
    return Encoded(i2d_ASN1_TYPE, value.get());
}
