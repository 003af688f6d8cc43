#pragma once

#include <cstdio>
#include <string>
#include <string_view>

// Text forms of bytes for the tests, made without the code under test.

/// The bytes that these hex digits stand for; blanks between them are for the reader.
inline std::string FromHex(std::string_view hex) {
    std::string bytes, digits;
    for (const char c : hex) {
        if (c != ' ')
            digits += c;
        if (digits.size() == 2) {
            bytes += static_cast<char>(std::stoi(digits, nullptr, 16));
            digits.clear();
        }
    }
    return bytes;
}

inline std::string ToHex(std::string_view bytes) {
    std::string hex;
    for (const char c : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", static_cast<unsigned char>(c));
        hex += digits;
    }
    return hex;
}

/// Base64 on one line, as libcrypto writes it.
std::string ToBase64(std::string_view bytes);

/// The bytes of one line of Base64 that libcrypto takes.
std::string FromBase64(std::string_view text);

/// Whether a strict JSON writer takes `text`, that is, whether it is UTF-8.
bool IsUtf8(const std::string& text);
