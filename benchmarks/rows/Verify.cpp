#include "Verify.h"

#include "support/Bytes.h"
#include "support/Certificates.h"
#include "support/Verify.h"

#include <nlohmann/json.hpp>

#include <stdexcept>

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

std::string CheckSignedData(const std::string& base64, const std::string* detachedContent) {
    const std::optional<std::string> content = VerifiedContent(FromBase64(base64), detachedContent);
    Expect(content.has_value(), "a SignedData does not verify");
    return *content;
}

void CheckSignature(const std::string& signerFile, std::string_view data, const std::string& signature) {
    const std::vector<std::string> signer = CertificatesIn(signerFile);
    Expect(!signer.empty(), "the signer's certificate cannot be read");
    Expect(Verifies(signer[0], "SHA256", data, signature), "a signature does not verify");
}
