#pragma once

#include <p11-kit/pkcs11.h>

#include <cstdint>
#include <span>
#include <vector>

/// The signing mechanisms that the driver knows, all of them RSA with PKCS #1 v1.5 padding. Others are
/// refused: what they sign could not be verified.

namespace tokendriver {

bool IsKnown(CK_MECHANISM_TYPE mechanism);

/// Whether it is one that hashes, which the driver can do itself: CKM_SHA256_RSA_PKCS, CKM_SHA384_RSA_PKCS,
/// CKM_SHA512_RSA_PKCS.
bool IsHashAndSign(CK_MECHANISM_TYPE mechanism);

/// The block that a known mechanism pads and signs for `data`: for CKM_RSA_PKCS the data itself, for the
/// others the DER DigestInfo (RFC 8017 section 9.2, with NULL parameters) over its hash. Throws Pkcs11Error
/// CKR_MECHANISM_INVALID for others, CKR_FUNCTION_FAILED when libcrypto fails.
std::vector<CK_BYTE> SignedBlock(CK_MECHANISM_TYPE mechanism, std::span<const std::uint8_t> data);

} // namespace tokendriver
