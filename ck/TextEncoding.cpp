#include "TextEncoding.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cstdint>

namespace {

constexpr std::string_view kBase64Digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::string_view kHexDigits = "0123456789ABCDEF";
constexpr std::string_view kLowerHexDigits = "0123456789abcdef";
constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";

/// What a character stands for: the value of a digit, or one of these two. Both have the top bit set, so that
/// one OR over several characters tells whether all of them are digits.
using DigitTable = std::array<std::uint8_t, 256>;
constexpr std::uint8_t kSkipped = 0x80;
constexpr std::uint8_t kNoDigit = 0x81;

constexpr void AddDigits(DigitTable& table, std::string_view digits) {
    for (std::size_t value = 0; value < digits.size(); ++value)
        table[static_cast<unsigned char>(digits[value])] = static_cast<std::uint8_t>(value);
}

constexpr DigitTable NoDigits() {
    DigitTable table{};
    for (std::uint8_t& entry : table)
        entry = kNoDigit;
    for (const char c : kWhiteSpace)
        table[static_cast<unsigned char>(c)] = kSkipped;
    return table;
}

constexpr DigitTable kBase64Table = [] {
    DigitTable table = NoDigits();
    AddDigits(table, kBase64Digits);
    return table;
}();

constexpr DigitTable kHexTable = [] {
    DigitTable table = NoDigits();
    AddDigits(table, kHexDigits);
    AddDigits(table, kLowerHexDigits);
    return table;
}();

constexpr std::size_t kGroup = 3; // bytes that make four digits

std::string ToBase64(std::string_view bytes) {
    std::string text((bytes.size() + kGroup - 1) / kGroup * 4, '\0');
    // The zero byte that EVP_EncodeBlock adds comes in the place of the text's own.
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                    reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
    return text;
}

std::string ToHex(std::string_view bytes) {
    std::string text;
    text.reserve(2 * bytes.size());
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += kHexDigits[byte >> 4];
        text += kHexDigits[byte & 0xF];
    }
    return text;
}

/// The value of the next digit of `text`, which is removed together with what is skipped before it; kNoDigit
/// at the end.
std::uint8_t NextDigit(std::string_view& text, const DigitTable& table) {
    while (!text.empty()) {
        const std::uint8_t value = table[static_cast<unsigned char>(text.front())];
        if (value == kNoDigit)
            return kNoDigit;
        text.remove_prefix(1);
        if (value != kSkipped)
            return value;
    }
    return kNoDigit;
}

/// Moves the groups of four digits with nothing between them from the front of `text` to `bytes`, decoded.
void MoveGroups(std::string_view& text, std::string& bytes) {
    std::array<char, 4096 * kGroup> part;
    std::size_t filled = 0;
    do {
        filled = 0;
        const auto* in = reinterpret_cast<const unsigned char*>(text.data());
        const auto* const end = in + text.size() / 4 * 4;
        for (; in < end && filled < part.size(); in += 4) {
            const std::uint8_t a = kBase64Table[in[0]], b = kBase64Table[in[1]], c = kBase64Table[in[2]],
                               d = kBase64Table[in[3]];
            if ((a | b | c | d) & 0x80)
                break;
            part[filled++] = static_cast<char>(a << 2 | b >> 4);
            part[filled++] = static_cast<char>(b << 4 | c >> 2);
            part[filled++] = static_cast<char>(c << 6 | d);
        }
        bytes.append(part.data(), filled);
        text.remove_prefix(filled / kGroup * 4);
    } while (filled == part.size());
}

/// The same for one group that white space or the end of the digits may interrupt. False at the end.
bool MoveInterruptedGroup(std::string_view& text, std::string& bytes) {
    std::uint32_t bits = 0;
    int count = 0; // of bits
    for (int digits = 0; digits < 4; ++digits, count += 6) {
        const std::uint8_t digit = NextDigit(text, kBase64Table);
        if (digit == kNoDigit)
            break;
        bits = bits << 6 | digit;
    }
    for (int shift = count - 8; shift >= 0; shift -= 8)
        bytes += static_cast<char>(bits >> shift);
    return count == 24;
}

void AppendFromBase64(std::string& bytes, std::string_view text) {
    bytes.reserve(bytes.size() + text.size() / 4 * kGroup + kGroup);
    do
        MoveGroups(text, bytes);
    while (MoveInterruptedGroup(text, bytes));
}

void AppendFromHex(std::string& bytes, std::string_view text) {
    bytes.reserve(bytes.size() + text.size() / 2);
    for (;;) {
        const std::uint8_t high = NextDigit(text, kHexTable);
        const std::uint8_t low = high == kNoDigit ? kNoDigit : NextDigit(text, kHexTable);
        if (low == kNoDigit)
            return;
        bytes += static_cast<char>(high << 4 | low);
    }
}

bool Is(const char* encoding, std::string_view name) { return encoding && encoding == name; }

} // namespace

std::string EncodeText(std::string_view bytes, const char* encoding) {
    if (Is(encoding, "Base64"))
        return ToBase64(bytes);
    return Is(encoding, "Hex") ? ToHex(bytes) : std::string();
}

void AppendDecodedText(std::string& bytes, std::string_view text, const char* encoding) {
    if (Is(encoding, "Base64"))
        AppendFromBase64(bytes, text);
    else if (Is(encoding, "Hex"))
        AppendFromHex(bytes, text);
}
