#include "Bytes.h"

#include "OpenSsl.h"

#include <nlohmann/json.hpp>

#include <cstdint>

std::string FromHex(std::string_view hex) {
    std::string digits(hex);
    std::erase(digits, ' ');
    std::string bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    return bytes;
}

std::string ToHex(std::string_view bytes) {
    std::string hex;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        hex += "0123456789ABCDEF"[byte >> 4];
        hex += "0123456789ABCDEF"[byte & 15];
    }
    return hex;
}

std::string ToBase64(std::string_view bytes) {
    std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0'); // libcrypto writes a zero byte behind
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), Octets(bytes),
                    static_cast<int>(bytes.size()));
    text.pop_back();
    return text;
}

std::string FromBase64(std::string_view text) {
    std::string bytes(text.size() / 4 * 3, '\0');
    if (EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()), Octets(text),
                        static_cast<int>(text.size())) < 0)
        throw std::invalid_argument("no Base64");
    for (; text.ends_with('='); text.remove_suffix(1))
        bytes.pop_back();
    return bytes;
}

std::string DigestOf(const char* hash, std::string_view bytes) {
    std::string digest(EVP_MAX_MD_SIZE, '\0');
    std::size_t size = 0;
    EVP_Q_digest(nullptr, hash, nullptr, bytes.data(), bytes.size(),
                 reinterpret_cast<unsigned char*>(digest.data()), &size);
    digest.resize(size);
    return digest;
}

std::string DerValue(int tag, std::string_view content) {
    std::string length;
    for (std::size_t rest = content.size(); rest > 0 || length.empty(); rest >>= 8)
        length.insert(length.begin(), static_cast<char>(rest));
    if (content.size() >= 0x80)
        length.insert(length.begin(), static_cast<char>(0x80 | length.size()));
    return static_cast<char>(tag) + length + std::string(content);
}

std::string FrameOf(std::string_view message) {
    const auto size = static_cast<std::uint32_t>(message.size());
    return std::string(reinterpret_cast<const char*>(&size), sizeof size).append(message);
}

bool IsUtf8(const std::string& text) {
    try {
        return !nlohmann::json(text).dump().empty();
    } catch (const nlohmann::json::type_error&) {
        return false;
    }
}
