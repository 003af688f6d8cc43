#pragma once

// Private to ck/.

#include <cstddef>
#include <string>
#include <string_view>

/// Appends Base64 (RFC 4648 section 4) of bytes that come in pieces to a text, without collecting them first.
class Base64Writer {
public:
    explicit Base64Writer(std::string& text) : text_(text) {}

    void Append(std::string_view bytes);

    /// Writes what is left, padded. To be called once, behind the last piece.
    void Finish();

private:
    std::string& text_;
    std::string rest_; // less than a group of three bytes
};

/// The length of `size` bytes in padded Base64.
constexpr std::size_t Base64Size(std::size_t size) { return (size + 2) / 3 * 4; }

/// `bytes` as text in `encoding`: "Base64" or "Hex" (upper case). Empty for any other encoding.
std::string EncodeText(std::string_view bytes, const char* encoding);

/// Appends what `text` decodes to under `encoding` to `bytes`. White space is skipped; the first other
/// character that cannot be decoded ends the decoding; the whole bytes before it count. Nothing for an
/// unknown encoding.
void AppendDecodedText(std::string& bytes, std::string_view text, const char* encoding);
