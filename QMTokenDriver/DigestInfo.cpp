#include "DigestInfo.h"

#include "Pkcs11Error.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>

namespace tokendriver {

namespace {

/// One hash: its mechanism and what stands before the digest in its DigestInfo (RFC 8017 section 9.2, note
/// 1). The three differ only in the last arc of the object identifier and in the lengths.
struct Hash {
    CK_MECHANISM_TYPE mechanism;
    const EVP_MD* (*algorithm)();
    CK_BYTE arc;
    CK_BYTE digestLength;
};

constexpr std::array<Hash, 3> kHashes = {{
    {CKM_SHA256_RSA_PKCS, EVP_sha256, 0x01, 32},
    {CKM_SHA384_RSA_PKCS, EVP_sha384, 0x02, 48},
    {CKM_SHA512_RSA_PKCS, EVP_sha512, 0x03, 64},
}};

const Hash* FindHash(CK_MECHANISM_TYPE mechanism) {
    const auto* found = std::find_if(kHashes.begin(), kHashes.end(),
                                     [mechanism](const Hash& hash) { return hash.mechanism == mechanism; });
    return found == kHashes.end() ? nullptr : found;
}

} // namespace

bool IsHashAndSign(CK_MECHANISM_TYPE mechanism) { return FindHash(mechanism) != nullptr; }

std::vector<CK_BYTE> DigestInfoOf(CK_MECHANISM_TYPE mechanism, std::span<const std::uint8_t> data) {
    const Hash* hash = FindHash(mechanism);
    if (hash == nullptr)
        throw Pkcs11Error(CKR_MECHANISM_INVALID);
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
