#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

/// A self-signed certificate (RSA 2048, one key for all) to order.
struct TestCertificate {
    /// Subject attributes in order, each a short name of OpenSSL's ("CN", "O", "emailAddress") and its UTF-8
    /// value.
    std::vector<std::pair<std::string, std::string>> subject = {
        {"C", "IN"}, {"O", "Example"}, {"CN", "Asha Rao"}};
    /// In OpenSSL's configuration syntax ("critical,digitalSignature"); no extension when absent.
    std::optional<std::string> keyUsage = "critical,digitalSignature";
    /// E-mail of the subject alternative name; no extension when empty.
    std::string email = {};
    /// Seconds from now.
    long notBefore = -86400;
    long notAfter = 86400;

    std::string der() const;
    /// The private key of every certificate made here.
    static std::string privateKeyPem();
};
