#include "Verify.h"

#include "Bytes.h"
#include "OpenSsl.h"

#include <openssl/rsa.h>

namespace {

Owned<EVP_PKEY> KeyIn(const std::string& certificate) {
    const Owned<X509> read = Decoded(d2i_X509, certificate);
    return Owned<EVP_PKEY>(read ? X509_get_pubkey(read.get()) : nullptr);
}

} // namespace

std::string SignedAttributesOf(const std::string& digest) {
    return FromHex("314B 3018 06092A864886F70D010903 310B 06092A864886F70D010701"
                   "302F 06092A864886F70D010904 3122 0420") +
           digest;
}

bool Verifies(const std::string& certificate, const char* hash, std::string_view data,
              const std::string& signature) {
    const Owned<EVP_PKEY> key = KeyIn(certificate);
    const Owned<EVP_MD_CTX> context(EVP_MD_CTX_new());
    return EVP_DigestVerifyInit(context.get(), nullptr, EVP_get_digestbyname(hash), nullptr, key.get()) ==
               1 &&
           EVP_DigestVerify(context.get(), Octets(signature), signature.size(), Octets(data), data.size()) ==
               1;
}

std::string RecoverSigned(const std::string& certificate, const std::string& signature) {
    const Owned<EVP_PKEY> key = KeyIn(certificate);
    const Owned<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new(key.get(), nullptr));
    std::string data(signature.size(), '\0');
    std::size_t length = data.size();
    const bool isDone = EVP_PKEY_verify_recover_init(context.get()) == 1 &&
                        EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) == 1 &&
                        EVP_PKEY_verify_recover(context.get(), reinterpret_cast<unsigned char*>(data.data()),
                                                &length, Octets(signature), signature.size()) == 1;
    data.resize(isDone ? length : 0);
    return data;
}

std::optional<std::string> VerifiedContent(std::string_view signedData, const std::string* detached) {
    const Owned<CMS_ContentInfo> cms = Decoded(d2i_CMS_ContentInfo, signedData);
    const Owned<BIO> given = detached ? ReaderOf(*detached) : nullptr;
    const Owned<BIO> content(BIO_new(BIO_s_mem()));
    if (!cms || CMS_verify(cms.get(), nullptr, nullptr, given.get(), content.get(),
                           CMS_BINARY | CMS_NO_SIGNER_CERT_VERIFY) != 1)
        return std::nullopt;
    return Written(content.get());
}
