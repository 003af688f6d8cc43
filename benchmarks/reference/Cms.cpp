// A GST signature by the shortest way: the request is parsed, CMS_sign of libcrypto makes the SignedData with
// its content, Base64, reply. The key is on the token, reached through OpenSSL's PKCS#11 engine.
//
//   reference-cms <module> <pin> <signer.pem> <PKCS#11 URI of the key>

#define OPENSSL_SUPPRESS_DEPRECATED // engines are, and nothing else in Debian 12 brings a PKCS#11 key to
                                    // libcrypto

#include "Frames.h"
#include "support/OpenSsl.h"

#include <nlohmann/json.hpp>

#include <openssl/engine.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <cstdio>

namespace {

template <class Result>
Result Checked(const char* what, Result result) {
    if (!result) {
        ERR_print_errors_fp(stderr);
        throw std::runtime_error(what);
    }
    return result;
}

Owned<EVP_PKEY> LoadKey(const char* modulePath, const char* pin, const char* uri) {
    ENGINE_load_builtin_engines();
    ENGINE* const engine = Checked("ENGINE_by_id", ENGINE_by_id("pkcs11"));
    Checked("MODULE_PATH", ENGINE_ctrl_cmd_string(engine, "MODULE_PATH", modulePath, 0));
    Checked("PIN", ENGINE_ctrl_cmd_string(engine, "PIN", pin, 0));
    Checked("ENGINE_init", ENGINE_init(engine));
    return Owned<EVP_PKEY>(
        Checked("ENGINE_load_private_key", ENGINE_load_private_key(engine, uri, nullptr, nullptr)));
}

Owned<X509> LoadCertificate(const char* path) {
    const Owned<BIO> file(Checked("BIO_new_file", BIO_new_file(path, "r")));
    return Owned<X509>(
        Checked("PEM_read_bio_X509", PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr)));
}

std::string Reply(const std::string& request, X509* certificate, EVP_PKEY* key) {
    const nlohmann::ordered_json json = nlohmann::ordered_json::parse(request);
    const auto& text = json.at("hash").get_ref<const std::string&>();
    const Owned<BIO> content = Checked("BIO_new_mem_buf", ReaderOf(text));
    const Owned<CMS_ContentInfo> cms(
        Checked("CMS_sign", CMS_sign(certificate, key, nullptr, content.get(), CMS_BINARY | CMS_NOATTR)));
    unsigned char* der = nullptr;
    const int length = i2d_CMS_ContentInfo(cms.get(), &der);
    Checked("i2d_CMS_ContentInfo", length > 0);

    std::string reply = R"({"status_cd":1,"result":")";
    const std::size_t head = reply.size();
    reply.resize(head + static_cast<std::size_t>(length + 2) / 3 * 4 +
                 1); // EVP_EncodeBlock writes a zero behind
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&reply[head]), der, length);
    OPENSSL_free(der);
    reply.pop_back();
    reply += R"(","nonce":""})";
    return reply;
}

} // namespace

int main(int argc, char** argv) try {
    if (argc != 5)
        return 2;
    const Owned<EVP_PKEY> key = LoadKey(argv[1], argv[2], argv[4]);
    const Owned<X509> certificate = LoadCertificate(argv[3]);
    std::string request;
    while (ReadFrame(request))
        WriteFrame(Reply(request, certificate.get(), key.get()));
    return 0;
} catch (const std::exception& e) {
    std::fprintf(stderr, "reference-cms: %s\n", e.what());
    return 1;
}
