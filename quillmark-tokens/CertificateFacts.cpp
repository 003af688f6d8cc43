#include "CertificateFacts.h"

#include "QMTokenDriver/OpenSslPtr.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/sha.h>
#include <openssl/x509v3.h>

#include <array>

namespace tokendriver::tool {

namespace {

/// In the certificate's order, joined by ", ", as the host shows names; UTF-8.
std::string NameText(const X509_NAME* name) {
    constexpr unsigned long kUtf8 = ASN1_STRFLGS_RFC2253 & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB);
    const OpenSslPtr<BIO> text(BIO_new(BIO_s_mem()));
    X509_NAME_print_ex(text.get(), name, 0, kUtf8 | XN_FLAG_SEP_CPLUS_SPC | XN_FLAG_FN_SN);
    char* begin = nullptr;
    const long length = BIO_get_mem_data(text.get(), &begin);
    return {begin, static_cast<std::size_t>(length)};
}

std::string TimeText(const ASN1_TIME* time) {
    std::tm parts{};
    std::array<char, 32> text{};
    if (ASN1_TIME_to_tm(time, &parts) != 1)
        return "?";
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text.data();
}

Bytes ModulusOf(const X509* certificate) {
    BIGNUM* number = nullptr;
    const EVP_PKEY* key = X509_get0_pubkey(certificate);
    if (key == nullptr || EVP_PKEY_get_base_id(key) != EVP_PKEY_RSA ||
        EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_N, &number) != 1)
        return {};
    const OpenSslPtr<BIGNUM> owned(number);
    Bytes modulus(static_cast<std::size_t>(BN_num_bytes(number)));
    BN_bn2bin(number, modulus.data());
    return modulus;
}

/// The key usages by which the host tells users' certificates from others: all but certificate and CRL
/// signing.
constexpr std::uint32_t kUsesOfUsers = KU_DIGITAL_SIGNATURE | KU_NON_REPUDIATION | KU_KEY_ENCIPHERMENT |
                                       KU_DATA_ENCIPHERMENT | KU_KEY_AGREEMENT | KU_ENCIPHER_ONLY;

std::vector<std::string> Objections(X509* certificate, std::time_t now, bool isRsa) {
    std::vector<std::string> objections;
    const std::uint32_t usage = X509_get_key_usage(certificate); // all bits when there is no such extension
    if ((X509_get_extension_flags(certificate) & EXFLAG_KUSAGE) == 0)
        objections.emplace_back("key usage: it has none, and passes for a chain certificate");
    else if ((usage & kUsesOfUsers) == 0)
        objections.emplace_back("chain certificate");
    else if ((usage & (KU_DIGITAL_SIGNATURE | KU_NON_REPUDIATION)) == 0)
        objections.emplace_back("key usage: not for signatures");
    if (X509_cmp_time(X509_get0_notAfter(certificate), &now) < 0)
        objections.emplace_back("expired");
    if (X509_cmp_time(X509_get0_notBefore(certificate), &now) > 0)
        objections.emplace_back("not yet valid");
    if (!isRsa)
        objections.emplace_back("not RSA");
    return objections;
}

} // namespace

std::optional<CertificateFacts> ReadCertificate(const Bytes& der, std::time_t now) {
    const OpenSslPtr<X509> certificate = ParseCertificate(der);
    if (!certificate)
        return std::nullopt;
    std::array<CK_BYTE, SHA_DIGEST_LENGTH> thumbprint{};
    EVP_Digest(der.data(), der.size(), thumbprint.data(), nullptr, EVP_sha1(), nullptr);
    const ASN1_INTEGER* serial = X509_get0_serialNumber(certificate.get());
    Bytes modulus = ModulusOf(certificate.get());
    std::vector<std::string> objections = Objections(certificate.get(), now, !modulus.empty());
    return CertificateFacts{
        NameText(X509_get_subject_name(certificate.get())),
        NameText(X509_get_issuer_name(certificate.get())),
        HexText(ASN1_STRING_get0_data(serial), static_cast<std::size_t>(ASN1_STRING_length(serial))),
        HexText(thumbprint.data(), thumbprint.size()),
        TimeText(X509_get0_notBefore(certificate.get())),
        TimeText(X509_get0_notAfter(certificate.get())),
        std::move(modulus),
        std::move(objections)};
}

} // namespace tokendriver::tool
