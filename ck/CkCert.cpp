#include "CkCert.h"

#include "AsnNode.h"
#include "CertName.h"
#include "OpenSsl.h"
#include "Rfc822Date.h"
#include "TextEncoding.h"

#include <openssl/evp.h>
#include <openssl/obj_mac.h>

#include <array>
#include <string_view>
#include <utility>

namespace {

/// A certificate with a portrait in it takes some 20 KB.
constexpr std::size_t kMaxCertificateSize = 1'000'000;

/// A SignedData has it four levels down (RFC 5652): ContentInfo, [0], SignedData, [0].
constexpr int kMaxCertificateDepth = kMaxAsnDepth - 4;

/// The certificate at the front of `der`; null when there is none.
std::shared_ptr<X509> ReadCertificate(std::string_view der) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(der.data());
    return OpenSslPtr<X509>(d2i_X509(nullptr, &bytes, static_cast<long>(der.size())));
}

/// A certificate and what it was read from.
struct LastRead {
    std::string der;
    std::shared_ptr<X509> certificate;
};

/// The certificate that was read last. Whoever lists certificates loads each several times in a row, and
/// libcrypto decodes the key at every reading, which takes 0.1 ms.
LastRead& Last() {
    OPENSSL_init_crypto(0, nullptr); // libcrypto's clean-up at exit has to come after that of `last`
    static LastRead last;
    return last;
}

/// Extension `nid` decoded as the type that its definition gives it, or null.
template <class T>
OpenSslPtr<T> Extension(const X509* certificate, int nid) {
    return OpenSslPtr<T>(static_cast<T*>(X509_get_ext_d2i(certificate, nid, nullptr, nullptr)));
}

std::string DateText(const ASN1_TIME* time) {
    std::tm utc{};
    return ASN1_TIME_to_tm(time, &utc) ? FormatRfc822(utc) : std::string();
}

/// RFC 5280 section 4.2.1.6: rfc822Name [1].
std::string AlternativeEmail(const X509* certificate) {
    const auto names = Extension<GENERAL_NAMES>(certificate, NID_subject_alt_name);
    for (int i = 0; i < sk_GENERAL_NAME_num(names.get()); ++i) {
        const GENERAL_NAME* name = sk_GENERAL_NAME_value(names.get(), i);
        if (name->type == GEN_EMAIL)
            return CStringOf(name->d.rfc822Name);
    }
    return {};
}

/// The RSAPublicKey in a SubjectPublicKeyInfo, empty for keys of other kinds.
std::string RsaPublicKey(const X509_PUBKEY* key) {
    ASN1_OBJECT* algorithm = nullptr;
    const unsigned char* bits = nullptr;
    int size = 0;
    X509_PUBKEY_get0_param(&algorithm, &bits, &size, nullptr, key);
    if (OBJ_obj2nid(algorithm) != NID_rsaEncryption)
        return {};
    return {reinterpret_cast<const char*>(bits), static_cast<std::size_t>(size)};
}

} // namespace

struct CkCert::Impl {
    std::shared_ptr<X509> certificate;
    std::string der;
    std::string error;

    bool Fail(std::string reason) {
        error = std::move(reason);
        return false;
    }

    /// Before the first load and after a failed one null.
    X509_NAME* subject() const { return certificate ? X509_get_subject_name(certificate.get()) : nullptr; }
};

CkCert::CkCert() : impl_(std::make_unique<Impl>()) {}
CkCert::~CkCert() = default;
CkCert::CkCert(CkCert&&) noexcept = default;
CkCert& CkCert::operator=(CkCert&&) noexcept = default;

bool CkCert::LoadFromBinary2(const char* der, std::size_t length) {
    *impl_ = Impl();
    if (length > kMaxCertificateSize)
        return impl_->Fail("the certificate is larger than " + std::to_string(kMaxCertificateSize) +
                           " bytes");
    LastRead& last = Last();
    const std::string_view bytes(der, length);
    if (!last.certificate || !bytes.starts_with(last.der)) {
        const OpenSslErrors errors;
        std::shared_ptr<X509> certificate = ReadCertificate(bytes);
        const std::string error = certificate ? "" : errors.Describe("d2i_X509");
        // libcrypto reads BER too, which nothing else here does. What stands behind is padding.
        std::string_view padding = bytes;
        const std::shared_ptr<AsnNode> tree = TakeAsnFromDer(padding, kMaxCertificateDepth);
        if (!certificate && tree)
            certificate = ReadCertificate(WithReadableNames(*tree));
        if (!certificate)
            return impl_->Fail(error);
        if (!tree)
            return impl_->Fail("the certificate is not in DER");
        last = {std::string(bytes.substr(0, length - padding.size())), std::move(certificate)};
    }
    impl_->certificate = last.certificate;
    impl_->der = last.der;
    return true;
}

std::string CkCert::lastErrorText() const { return impl_->error; }

bool CkCert::get_LastMethodSuccess() const { return impl_->error.empty(); }

std::string CkCert::subjectDN() const { return DistinguishedName(impl_->subject()); }

std::string CkCert::subjectCN() const { return FirstAttribute(impl_->subject(), NID_commonName); }

std::string CkCert::subjectO() const { return FirstAttribute(impl_->subject(), NID_organizationName); }

std::string CkCert::rfc822Name() const {
    if (!impl_->certificate)
        return {};
    const OpenSslErrors errors;
    std::string email = AlternativeEmail(impl_->certificate.get());
    return email.empty() ? FirstAttribute(impl_->subject(), NID_pkcs9_emailAddress) : email;
}

std::string CkCert::sha1Thumbprint() const {
    std::array<char, EVP_MAX_MD_SIZE> digest{};
    unsigned size = 0;
    const OpenSslErrors errors;
    if (!impl_->certificate ||
        !EVP_Digest(impl_->der.data(), impl_->der.size(), reinterpret_cast<unsigned char*>(digest.data()),
                    &size, EVP_sha1(), nullptr))
        return {};
    return EncodeText({digest.data(), size}, "Hex");
}

std::string CkCert::validFromStr() const {
    const OpenSslErrors errors;
    return impl_->certificate ? DateText(X509_get0_notBefore(impl_->certificate.get())) : std::string();
}

std::string CkCert::validToStr() const {
    const OpenSslErrors errors;
    return impl_->certificate ? DateText(X509_get0_notAfter(impl_->certificate.get())) : std::string();
}

std::uint32_t CkCert::get_IntendedKeyUsage() const {
    if (!impl_->certificate)
        return 0;
    const OpenSslErrors errors;
    const auto bits = Extension<ASN1_BIT_STRING>(impl_->certificate.get(), NID_key_usage);
    return bits && bits->length > 0 ? bits->data[0] : 0;
}

std::unique_ptr<CkPublicKey> CkCert::ExportPublicKey() {
    impl_->error.clear();
    if (!impl_->certificate) {
        impl_->Fail("no certificate is loaded");
        return nullptr;
    }
    const OpenSslErrors errors;
    if (!X509_get0_pubkey(impl_->certificate.get())) {
        impl_->Fail(errors.Describe("X509_get0_pubkey"));
        return nullptr;
    }
    X509_PUBKEY* key = X509_get_X509_PUBKEY(impl_->certificate.get());
    unsigned char* encoded = nullptr;
    const int size = i2d_X509_PUBKEY(key, &encoded);
    const OpenSslPtr<unsigned char> owner(encoded);
    if (size <= 0) {
        impl_->Fail(errors.Describe("i2d_X509_PUBKEY"));
        return nullptr;
    }
    return std::unique_ptr<CkPublicKey>(new CkPublicKey(
        std::string(reinterpret_cast<char*>(encoded), static_cast<std::size_t>(size)), RsaPublicKey(key)));
}

std::string CkCert::getEncoded() const { return EncodeText(impl_->der, "Base64"); }
