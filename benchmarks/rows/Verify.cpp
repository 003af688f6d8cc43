#include "Verify.h"

#include <nlohmann/json.hpp>

#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <memory>
#include <stdexcept>

namespace {

struct Free {
    void operator()(BIO* bio) const { BIO_free(bio); }
    void operator()(CMS_ContentInfo* cms) const { CMS_ContentInfo_free(cms); }
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
    void operator()(X509* certificate) const { X509_free(certificate); }
};

template <typename Handle>
using Owned = std::unique_ptr<Handle, Free>;

const unsigned char* Bytes(std::string_view data) {
    return reinterpret_cast<const unsigned char*>(data.data());
}

Owned<BIO> Reader(std::string_view data) {
    return Owned<BIO>(BIO_new_mem_buf(data.data(), static_cast<int>(data.size())));
}

std::string FromBase64(std::string_view text) {
    std::string bytes(text.size() / 4 * 3, '\0');
    const int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()), Bytes(text),
                                       static_cast<int>(text.size()));
    Expect(length == static_cast<int>(bytes.size()), "a result is not Base64");
    while (!text.empty() && text.back() == '=') {
        text.remove_suffix(1);
        bytes.pop_back();
    }
    return bytes;
}

std::string FromHex(std::string_view hex) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes += static_cast<char>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16));
    return bytes;
}

} // namespace

void Expect(bool condition, const char* what) {
    if (!condition)
        throw std::runtime_error(what);
}

std::string ResultOf(std::string_view reply) {
    const auto json = nlohmann::json::parse(reply);
    if (json.at("status_cd") != 1)
        throw std::runtime_error("a request failed: " + json.at("result").get<std::string>());
    return json.at("result");
}

std::string CheckSignedData(std::string_view base64, std::string_view detachedContent) {
    const std::string der = FromBase64(base64);
    const unsigned char* cursor = Bytes(der);
    const Owned<CMS_ContentInfo> cms(d2i_CMS_ContentInfo(nullptr, &cursor, static_cast<long>(der.size())));
    Expect(cms && cursor == Bytes(der) + der.size(), "a result is no SignedData");
    const Owned<BIO> detached = detachedContent.empty() ? nullptr : Reader(detachedContent);
    const Owned<BIO> content(BIO_new(BIO_s_mem()));
    Expect(CMS_verify(cms.get(), nullptr, nullptr, detached.get(), content.get(),
                      CMS_BINARY | CMS_NO_SIGNER_CERT_VERIFY) == 1,
           "a SignedData does not verify");
    const char* data = nullptr;
    const long length = BIO_get_mem_data(content.get(), &data);
    return {data, static_cast<std::size_t>(length)};
}

void CheckSignature(const std::string& signerFile, std::string_view data, std::string_view signature) {
    const Owned<BIO> file(BIO_new_file(signerFile.c_str(), "r"));
    const Owned<X509> signer(PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr));
    Expect(signer != nullptr, "the signer's certificate cannot be read");
    const Owned<EVP_MD_CTX> context(EVP_MD_CTX_new());
    const std::string bytes = FromHex(signature);
    Expect(EVP_DigestVerifyInit(context.get(), nullptr, EVP_sha256(), nullptr,
                                X509_get0_pubkey(signer.get())) == 1 &&
               EVP_DigestVerify(context.get(), Bytes(bytes), bytes.size(), Bytes(data), data.size()) == 1,
           "a signature does not verify");
}

std::string Sha256(std::string_view data) {
    std::string digest(EVP_MAX_MD_SIZE, '\0');
    std::size_t length = 0;
    EVP_Q_digest(nullptr, "SHA256", nullptr, data.data(), data.size(),
                 reinterpret_cast<unsigned char*>(digest.data()), &length);
    digest.resize(length);
    return digest;
}

std::string Base64(std::string_view data) {
    std::string text((data.size() + 2) / 3 * 4 + 1, '\0'); // EVP_EncodeBlock writes a zero behind
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), Bytes(data),
                    static_cast<int>(data.size()));
    text.pop_back();
    return text;
}

std::string Hex(std::string_view data) {
    std::string hex;
    for (const char c : data) {
        const auto byte = static_cast<unsigned char>(c);
        hex += "0123456789ABCDEF"[byte >> 4];
        hex += "0123456789ABCDEF"[byte & 15];
    }
    return hex;
}
