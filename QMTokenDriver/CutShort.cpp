#include "CutShort.h"

#include "Mechanisms.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>

namespace tokendriver {

namespace {

using Data = std::span<const std::uint8_t>;

constexpr std::uint8_t kSequence = 0x30;
constexpr std::uint8_t kSet = 0x31;
constexpr std::uint8_t kObjectIdentifier = 0x06;

/// SEQUENCE of 24 bytes { OBJECT IDENTIFIER 1.2.840.113549.1.9.3 (contentType) ...
constexpr std::array<std::uint8_t, 13> kContentType = {0x30, 0x18, 0x06, 0x09, 0x2a, 0x86, 0x48,
                                                       0x86, 0xf7, 0x0d, 0x01, 0x09, 0x03};

/// A DER identifier and length (X.690 section 8.1.3).
struct Header {
    bool isWhole;       ///< false: the data ends within the length octets
    std::size_t length; ///< of the content
    Data content;       ///< what there is of it, and all that follows
};

/// Four length octets announce up to 4 GiB, more than any message of the host.
constexpr std::size_t kMaxLengthOctets = 4;

/// The header of an element with `tag` at the begin of `data`; nothing when there is none in DER.
std::optional<Header> ReadHeader(Data data, std::uint8_t tag) {
    if (data.size() < 2 || data[0] != tag)
        return std::nullopt;
    const std::uint8_t first = data[1];
    data = data.subspan(2);
    if (first < 0x80)
        return Header{true, first, data};
    const std::size_t octets = first & 0x7fU;
    if (octets == 0 || octets > kMaxLengthOctets)
        return std::nullopt;
    if (data.size() < octets)
        return Header{false, 0, {}};
    std::size_t length = 0;
    for (const std::uint8_t octet : data.first(octets))
        length = length << 8 | octet;
    return Header{true, length, data.subspan(octets)};
}

bool BeginsWithContentType(Data content) {
    return content.size() >= kContentType.size() &&
           std::equal(kContentType.begin(), kContentType.end(), content.begin());
}

bool BeginsWithHashAlgorithm(Data content) {
    const std::optional<Header> algorithm = ReadHeader(content, kSequence);
    return algorithm && algorithm->isWhole && ReadHeader(algorithm->content, kObjectIdentifier);
}

/// A header cut off within its length octets has one of 0x81 to 0x84 behind the tag, which no UTF-8 text has
/// there.
template <class Recognised>
bool IsCut(Data data, std::uint8_t tag, Recognised recognised) {
    const std::optional<Header> header = ReadHeader(data, tag);
    if (!header)
        return false;
    return !header->isWhole || (header->length > header->content.size() && recognised(header->content));
}

} // namespace

bool IsCutSignedAttributes(Data data) { return IsCut(data, kSet, BeginsWithContentType); }

bool IsCutDigestInfo(Data data) { return IsCut(data, kSequence, BeginsWithHashAlgorithm); }

bool IsCutShort(CK_MECHANISM_TYPE mechanism, Data data) {
    if (mechanism == CKM_RSA_PKCS)
        return IsCutDigestInfo(data);
    return IsHashAndSign(mechanism) && IsCutSignedAttributes(data);
}

} // namespace tokendriver
