#pragma once

#include <string>
#include <string_view>

/// The checks that a result is right, by libcrypto. Each throws std::runtime_error when it is not. The signer
/// is the certificate of a PEM file.

/// The text of a reply of the host that reports success.
std::string ResultOf(std::string_view reply);

/// `base64` is a SignedData whose signature by the signer it carries is right. `detachedContent` is the
/// content of one without any. Returns the content.
std::string CheckSignedData(const std::string& base64, const std::string* detachedContent = nullptr);

/// `signature` is the signer's over `data` with SHA-256 and PKCS#1 v1.5.
void CheckSignature(const std::string& signerFile, std::string_view data, const std::string& signature);

/// Throws std::runtime_error with `what` when the condition does not hold.
void Expect(bool condition, const char* what);
