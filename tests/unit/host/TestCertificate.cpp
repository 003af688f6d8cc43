#include "TestCertificate.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <memory>
#include <stdexcept>

namespace {

template <auto freeFunction>
struct Deleter {
    template <typename T>
    void operator()(T* object) const {
        freeFunction(object);
    }
};
using X509Ptr = std::unique_ptr<X509, Deleter<X509_free>>;
using ExtensionPtr = std::unique_ptr<X509_EXTENSION, Deleter<X509_EXTENSION_free>>;

EVP_PKEY* SharedKey() {
    static const std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY_free>> key(EVP_RSA_gen(2048));
    return key.get();
}

void AddExtension(X509* cert, int nid, const std::string& value) {
    const ExtensionPtr extension(X509V3_EXT_conf_nid(nullptr, nullptr, nid, value.c_str()));
    if (!extension || !X509_add_ext(cert, extension.get(), -1))
        throw std::runtime_error("cannot make the extension " + value);
}

} // namespace

std::string TestCertificate::der() const {
    const X509Ptr cert(X509_new());
    X509_set_version(cert.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(cert.get()), 4711);
    X509_gmtime_adj(X509_getm_notBefore(cert.get()), notBefore);
    X509_gmtime_adj(X509_getm_notAfter(cert.get()), notAfter);
    X509_NAME* name = X509_get_subject_name(cert.get());
    for (const auto& [attribute, value] : subject)
        X509_NAME_add_entry_by_txt(name, attribute.c_str(), MBSTRING_UTF8,
                                   reinterpret_cast<const unsigned char*>(value.data()),
                                   static_cast<int>(value.size()), -1, 0);
    X509_set_issuer_name(cert.get(), name);
    X509_set_pubkey(cert.get(), SharedKey());
    if (keyUsage)
        AddExtension(cert.get(), NID_key_usage, *keyUsage);
    if (!email.empty())
        AddExtension(cert.get(), NID_subject_alt_name, "email:" + email);
    X509_sign(cert.get(), SharedKey(), EVP_sha256());

    unsigned char* bytes = nullptr;
    const int length = i2d_X509(cert.get(), &bytes);
    if (length < 0)
        throw std::runtime_error("cannot encode the certificate");
    const std::string der(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
    OPENSSL_free(bytes);
    return der;
}

std::string TestCertificate::privateKeyPem() {
    const std::unique_ptr<BIO, Deleter<BIO_free_all>> text(BIO_new(BIO_s_mem()));
    if (!PEM_write_bio_PrivateKey(text.get(), SharedKey(), nullptr, nullptr, 0, nullptr, nullptr))
        throw std::runtime_error("cannot write the private key");
    char* bytes = nullptr;
    const long length = BIO_get_mem_data(text.get(), &bytes);
    return {bytes, static_cast<std::size_t>(length)};
}
