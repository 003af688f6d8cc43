#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// An owned run of bytes with text encodings.
///
/// Encoding names: "Base64" (RFC 4648 section 4, padded, one line) and "Hex" (upper case, no separators).
class CkByteData {
public:
    /// Appends the bytes of `text`, without a terminator.
    void appendStr(std::string text);

    /// Appends what `text` decodes to under `encoding`. White space and line breaks are skipped; the first
    /// character that cannot be decoded ends the decoding, and what came before it is kept.
    void appendEncoded(std::string_view text, const char* encoding);

    /// All the bytes as text in `encoding`.
    std::string getEncoded(const char* encoding) const;

    /// The bytes as a NUL-terminated text: the terminator stands right behind the last byte, so a reader of
    /// text stops at the first zero byte or at the end. Valid until the next change of this object.
    const char* getData() const;

    /// The bytes from `index` on; at least `count` of them are readable, and a zero byte stands behind the
    /// last byte of the object. Null when the range does not lie inside. Valid until the next change of this
    /// object.
    const unsigned char* getRange(std::size_t index, std::size_t count) const;

    /// The number of bytes.
    std::size_t getSize() const;

private:
    std::string bytes_;
};
