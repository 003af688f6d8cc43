#include "Mechanisms.h"

#include "Pkcs11Error.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>

namespace tokendriver {

namespace {

/// A hash, and what its DigestInfo has of its own (RFC 8017 section 9.2, note 1): the last arc of the object
/// identifier, and the length.
struct Hash {
    const EVP_MD* (*algorithm)();
    CK_BYTE arc;
    CK_BYTE digestLength;
};

constexpr std::array kTypes = {CKM_RSA_PKCS, CKM_SHA256_RSA_PKCS, CKM_SHA384_RSA_PKCS, CKM_SHA512_RSA_PKCS};

/// One for each type; CKM_RSA_PKCS has none.
constexpr std::array<Hash, kTypes.size()> kHashes = {{
    {nullptr, 0, 0},
    {EVP_sha256, 0x01, 32},
    {EVP_sha384, 0x02, 48},
    {EVP_sha512, 0x03, 64},
}};

const Hash* FindHash(CK_MECHANISM_TYPE mechanism) {
    const auto* found = std::find(kTypes.begin(), kTypes.end(), mechanism);
    return found == kTypes.end() ? nullptr : &kHashes[static_cast<std::size_t>(found - kTypes.begin())];
}

} // namespace

bool IsKnown(CK_MECHANISM_TYPE mechanism) { return FindHash(mechanism) != nullptr; }

bool IsHashAndSign(CK_MECHANISM_TYPE mechanism) { return IsKnown(mechanism) && mechanism != CKM_RSA_PKCS; }

std::vector<CK_BYTE> SignedBlock(CK_MECHANISM_TYPE mechanism, std::span<const std::uint8_t> data) {
    const Hash* hash = FindHash(mechanism);
    if (hash == nullptr)
        throw Pkcs11Error(CKR_MECHANISM_INVALID);
    if (hash->algorithm == nullptr)
        return {data.begin(), data.end()};
    const CK_BYTE length = hash->digestLength;
    std::vector<CK_BYTE> info = {0x30,      static_cast<CK_BYTE>(17 + length),
                                 0x30,      0x0d,
                                 0x06,      0x09,
                                 0x60,      0x86,
                                 0x48,      0x01,
                                 0x65,      0x03,
                                 0x04,      0x02,
                                 hash->arc, 0x05,
                                 0x00,      0x04,
                                 length};
    const std::size_t head = info.size();
    info.resize(head + length);
    if (EVP_Digest(data.data(), data.size(), info.data() + head, nullptr, hash->algorithm(), nullptr) != 1)
        throw Pkcs11Error(CKR_FUNCTION_FAILED);
    return info;
}

} // namespace tokendriver
