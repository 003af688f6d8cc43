#pragma once

#include <optional>
#include <string>
#include <string_view>

// Signatures and libcrypto's verdicts on them. Certificates and structures are in DER.

/// What is signed for a document with this SHA-256 digest: the attributes contentType and messageDigest in a
/// SET (RFC 5652 section 5.4).
std::string SignedAttributesOf(const std::string& digest);

/// Whether `signature` is PKCS#1 v1.5 with this hash ("SHA256") over `data`, by the certificate's key.
bool Verifies(const std::string& certificate, const char* hash, std::string_view data,
              const std::string& signature);

/// The bytes that PKCS#1 v1.5 was given when `signature` was made; empty when it is no such signature.
std::string RecoverSigned(const std::string& certificate, const std::string& signature);

/// The content of a SignedData whose signature, by the signer it carries, is right: the content in it, or
/// `detached` for one that has none. Nothing when it does not verify.
std::optional<std::string> VerifiedContent(std::string_view signedData,
                                           const std::string* detached = nullptr);
