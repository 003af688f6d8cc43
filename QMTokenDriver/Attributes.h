#pragma once

#include <p11-kit/pkcs11.h>

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

/// What the driver changes in attributes on their way between the host and a module: 4-byte numbers are
/// widened, and a CKA_ID is upper-case hex text outside and raw bytes inside. All else passes untouched.

namespace tokendriver {

using Bytes = std::vector<CK_BYTE>;

/// More attributes than any object has (PKCS#11 names about a hundred); above it a template is a mistake.
constexpr CK_ULONG kMaxTemplateAttributes = 256;

/// The longest value searched for or reported: certificates have a few thousand bytes, and the host's
/// messages end at 1 MiB. A module that reports more is broken, and the host would allocate what it says.
constexpr CK_ULONG kMaxAttributeBytes = 1UL << 20;

/// The longest raw CKA_ID that is shown; ids are hashes or short numbers.
constexpr CK_ULONG kMaxIdBytes = 4096;

inline std::span<const CK_BYTE> BytesOf(const std::string& text) {
    return {reinterpret_cast<const CK_BYTE*>(text.data()), text.size()};
}

/// "0A1B" for the bytes 0a 1b; empty for none.
std::string HexText(std::span<const CK_BYTE> bytes);

/// The bytes that hex text (of either case) of `length` characters stands for, with or without one
/// terminating zero byte; nothing when it is no hex.
std::optional<Bytes> BytesOfHexText(const CK_BYTE* text, std::size_t length);

/// A search template as a module that follows the standard expects it. It owns its values, so that the search
/// can be begun again after the caller's memory is gone.
class SearchTemplate {
public:
    /// Translates the host's template. `given` may be null when `count` is 0. Throws Pkcs11Error:
    /// CKR_ARGUMENTS_BAD for null pointers with a length or too many attributes, CKR_ATTRIBUTE_VALUE_INVALID
    /// for values over the limit.
    SearchTemplate(const CK_ATTRIBUTE* given, CK_ULONG count);

    /// An attribute that no object can have was asked for (a CKA_ID that is no hex), so no module need be
    /// asked.
    bool MatchesNothing() const { return matchesNothing_; }

    /// The translated attributes; they point into this object and stay valid as long as it does.
    std::vector<CK_ATTRIBUTE> Attributes();

    /// What the template says about the class and the raw id of the objects that it finds.
    const std::optional<CK_OBJECT_CLASS>& ObjectClass() const { return objectClass_; }
    const std::optional<Bytes>& Id() const { return id_; }

    /// The id as the host gave it, in upper case where it is hex; nothing when the template has none.
    const std::optional<std::string>& IdText() const { return idText_; }

    /// The same search for the raw `id` in the place of what the host gave.
    SearchTemplate WithId(const Bytes& id) const;

    /// Asks for the X.509 certificates on the token and for nothing else.
    bool IsForAllCertificates() const;

private:
    struct Entry {
        CK_ATTRIBUTE_TYPE type;
        Bytes value;
    };
    void Add(const CK_ATTRIBUTE& given);

    std::vector<Entry> entries_;
    std::optional<CK_OBJECT_CLASS> objectClass_;
    std::optional<Bytes> id_;
    std::optional<std::string> idText_;
    bool matchesNothing_ = false;
};

/// An answer that holds lengths: success, and the failures that concern single attributes (PKCS#11
/// section 5.7).
bool HoldsLengths(CK_RV answer);

/// Answers one attribute of a C_GetAttributeValue with this value by the standard's rules for sizing and
/// short buffers (PKCS#11 section 5.7): CKR_OK or CKR_BUFFER_TOO_SMALL.
CK_RV AnswerAttribute(CK_ATTRIBUTE& wanted, std::span<const CK_BYTE> value);

/// What is known of an object's id.
struct KnownId {
    std::optional<Bytes> raw;
    std::optional<std::string> text; ///< as the host is shown it, where that is not the raw one's hex
};

/// C_GetAttributeValue on a module's object with the host's template: each CKA_ID is answered as hex text,
/// two characters per byte and without terminator, or as the text that it is known by, which is as long or
/// longer. `id.raw` is learnt when the module gives it. A module that reports a length over its buffer or
/// over the limits: CKR_DEVICE_ERROR, and that length unavailable.
CK_RV ReadAttributes(CK_FUNCTION_LIST& module, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                     CK_ATTRIBUTE* wanted, CK_ULONG count, KnownId& id);

} // namespace tokendriver
