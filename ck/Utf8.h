#pragma once

// Private to ck/.

#include <cstddef>
#include <string>
#include <string_view>

/// The character at the front of a text.
struct Utf8Character {
    unsigned long codePoint;
    std::size_t size; ///< in bytes; 0 when what stands there is no UTF-8
};

/// Decodes the first character of `text`, which is not empty (RFC 3629: no surrogates, nothing above
/// U+10FFFF).
Utf8Character FirstUtf8Character(std::string_view text);

/// `text` with each byte that belongs to no UTF-8 character replaced by U+FFFD.
std::string ValidUtf8(std::string_view text);
