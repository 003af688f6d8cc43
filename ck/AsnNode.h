#pragma once

// Private to ck/: the tree behind CkAsn, and its two forms.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

enum class AsnClass : std::uint8_t { Universal, Application, ContextSpecific, Private };

/// X.680 section 8.4: the tag numbers of the universal class that have a meaning here.
enum AsnTag : std::uint32_t {
    kAsnBoolean = 1,
    kAsnInteger = 2,
    kAsnBitString = 3,
    kAsnOctetString = 4,
    kAsnNull = 5,
    kAsnOid = 6,
    kAsnReal = 9,
    kAsnEnumerated = 10,
    kAsnUtf8String = 12,
    kAsnSequence = 16,
    kAsnSet = 17,
    kAsnNumericString = 18,
    kAsnPrintableString = 19,
    kAsnT61String = 20,
    kAsnIa5String = 22,
    kAsnUtcTime = 23,
    kAsnGeneralizedTime = 24,
    kAsnVisibleString = 26,
    kAsnUniversalString = 28,
    kAsnBmpString = 30,
};

/// One ASN.1 value. The content octets of a primitive one stand in `content` as they are in DER, those of a
/// constructed one are the children.
struct AsnNode {
    AsnClass tagClass = AsnClass::Universal;
    std::uint32_t tag = kAsnSequence;
    bool constructed = true;
    std::string content;
    std::vector<std::shared_ptr<AsnNode>> children;
};

/// Certificates and SignedData nest some fifteen levels deep. What walks a tree recurses.
constexpr int kMaxAsnDepth = 128;

/// A value may be two bytes long and its node takes some hundred; a certificate has some hundred values.
constexpr std::size_t kMaxAsnNodes = 1'000'000;

/// No tag of a standard comes near; five octets of seven bits.
constexpr std::uint32_t kMaxAsnTag = 0x7FFFFFFF;

/// The one value that `der` holds, in DER as far as the tree shows it: definite lengths and tag numbers in
/// their shortest form. Contents are not judged. Null when it is none, or outside of the limits.
std::shared_ptr<AsnNode> AsnFromDer(std::string_view der);

/// The same for the value at the front of `der`, nested at most `maxDepth` levels, which is removed from
/// there.
std::shared_ptr<AsnNode> TakeAsnFromDer(std::string_view& der, int maxDepth);

std::string AsnToDer(const AsnNode& node);

std::string AsnToXml(const AsnNode& node);

/// Parses `xml` in place. Null when it is not well-formed, its root element is unknown, or outside of the
/// limits.
std::shared_ptr<AsnNode> AsnFromXml(std::string xml);

/// The content octets of the OBJECT IDENTIFIER `dotted`; empty when it is none.
std::string OidContent(std::string_view dotted);

/// The dotted form of these content octets; empty when they have none that gives the same octets back.
std::string OidText(std::string_view content);
