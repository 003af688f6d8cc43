// Bytes -> Base64 and Hex -> bytes is the identity; any text decodes as far as a plain decoder gets.

#include "Require.h"
#include "ck/CkBinData.h"
#include "ck/CkByteData.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace {

constexpr std::string_view kBase64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::string_view kHex = "0123456789ABCDEF0123456789abcdef";

/// Digit by digit: white space is skipped, the first other character that is no digit ends the decoding.
std::string PlainDecode(std::string_view text, std::string_view digits, unsigned bitsPerDigit) {
    std::string bytes;
    unsigned bits = 0, count = 0;
    for (const char c : text) {
        if (c != '\0' && std::string_view(" \t\n\v\f\r").find(c) != std::string_view::npos)
            continue;
        const std::size_t value = digits.find(c);
        if (value == std::string_view::npos)
            break;
        bits = (bits << bitsPerDigit | static_cast<unsigned>(value & ((1U << bitsPerDigit) - 1))) & 0xFFFF;
        count += bitsPerDigit;
        if (count >= 8) {
            count -= 8;
            bytes += static_cast<char>(bits >> count);
        }
    }
    return bytes;
}

std::string Decode(std::string_view text, const char* encoding) {
    CkByteData bytes;
    bytes.appendEncoded(text, encoding);
    Require(bytes.getData()[bytes.getSize()] == 0, "a zero byte stands behind the last");
    return {bytes.getData(), bytes.getSize()};
}

void CheckEncoding(std::string_view input, const char* encoding, std::string_view digits, unsigned bits) {
    CkByteData bytes;
    bytes.appendStr(std::string(input));
    const std::string text = bytes.getEncoded(encoding);
    Require(text.find_first_not_of(std::string(digits) + "=") == std::string::npos, "one line of digits");
    Require(bits != 6 || text.size() == (input.size() + 2) / 3 * 4, "Base64 is padded");
    Require(Decode(text, encoding) == input, "what was encoded decodes to itself");

    CkBinData oneByOne;
    for (const char byte : input)
        oneByOne.AppendByte(static_cast<unsigned char>(byte));
    Require(oneByOne.getEncoded(encoding) == text, "bytes one by one encode alike");

    Require(Decode(input, encoding) == PlainDecode(input, digits, bits), "any text decodes plainly");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    CheckEncoding(input, "Base64", kBase64, 6);
    CheckEncoding(input, "Hex", kHex, 4);
    return 0;
}
