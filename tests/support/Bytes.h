#pragma once

#include <string>
#include <string_view>

// Text forms of bytes, made without the code under test.

/// The bytes that these hex digits stand for, in either case; blanks between them are for the reader.
std::string FromHex(std::string_view hex);

/// Two digits per byte, upper case.
std::string ToHex(std::string_view bytes);

/// Base64 on one line, as libcrypto writes it.
std::string ToBase64(std::string_view bytes);

/// The bytes of one line of Base64; throws std::invalid_argument when libcrypto does not take it.
std::string FromBase64(std::string_view text);

/// The digest of `bytes`, by libcrypto's name of it: "SHA256".
std::string DigestOf(const char* hash, std::string_view bytes);

/// The DER value with this identifier octet around `content`, its length in as few octets as DER wants.
std::string DerValue(int tag, std::string_view content);

/// A frame of native messaging: four bytes of length in the machine's byte order, then the message.
std::string FrameOf(std::string_view message);

/// Whether a strict JSON writer takes `text`, that is, whether it is UTF-8.
bool IsUtf8(const std::string& text);
