#include "CertificateFacts.h"

#include "QMTokenDriver/OpenSslPtr.h"

#include <openssl/evp.h>
#include <openssl/sha.h>
#include <openssl/x509.h>

#include <array>
#include <ctime>

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

} // namespace

std::optional<CertificateFacts> ReadCertificate(const Bytes& der) {
    const OpenSslPtr<X509> certificate = ParseCertificate(der);
    if (!certificate)
        return std::nullopt;
    std::array<CK_BYTE, SHA_DIGEST_LENGTH> thumbprint{};
    EVP_Digest(der.data(), der.size(), thumbprint.data(), nullptr, EVP_sha1(), nullptr);
    const ASN1_INTEGER* serial = X509_get0_serialNumber(certificate.get());
    return CertificateFacts{
        NameText(X509_get_subject_name(certificate.get())),
        NameText(X509_get_issuer_name(certificate.get())),
        HexText({ASN1_STRING_get0_data(serial), static_cast<std::size_t>(ASN1_STRING_length(serial))}),
        HexText(thumbprint),
        TimeText(X509_get0_notBefore(certificate.get())),
        TimeText(X509_get0_notAfter(certificate.get()))};
}

} // namespace tokendriver::tool
