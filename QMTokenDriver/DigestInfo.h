#pragma once

#include <p11-kit/pkcs11.h>

#include <cstdint>
#include <span>
#include <vector>

namespace tokendriver {

/// Whether the driver can do the hashing of this mechanism itself: CKM_SHA256_RSA_PKCS, CKM_SHA384_RSA_PKCS,
/// CKM_SHA512_RSA_PKCS.
bool IsHashAndSign(CK_MECHANISM_TYPE mechanism);

/// The DER DigestInfo (RFC 8017 section 9.2, with NULL parameters) over the hash of `data`, ready for
/// CKM_RSA_PKCS. Throws Pkcs11Error CKR_MECHANISM_INVALID unless IsHashAndSign(mechanism),
/// CKR_FUNCTION_FAILED when libcrypto fails.
std::vector<CK_BYTE> DigestInfoOf(CK_MECHANISM_TYPE mechanism, std::span<const std::uint8_t> data);

} // namespace tokendriver
