#pragma once

#include <p11-kit/pkcs11.h>

#include <cstdint>
#include <span>

/// The host hands over data only up to its first zero byte. A signature over a structure cut there verifies
/// against nothing, so such data is refused; texts, which have no zero byte, are never taken for a structure.

namespace tokendriver {

/// Whether `data` begins as the SET of CMS signed attributes (RFC 5652 section 5.3: DER, contentType first)
/// and its header announces more bytes than there are, or is itself cut off.
bool IsCutSignedAttributes(std::span<const std::uint8_t> data);

/// The same for a DigestInfo (RFC 8017 section 9.2): SEQUENCE { SEQUENCE { OBJECT IDENTIFIER ...
bool IsCutDigestInfo(std::span<const std::uint8_t> data);

/// Whether `data` must not be signed with `mechanism` on these grounds.
bool IsCutShort(CK_MECHANISM_TYPE mechanism, std::span<const std::uint8_t> data);

} // namespace tokendriver
