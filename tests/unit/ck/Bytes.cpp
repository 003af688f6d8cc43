#include "Bytes.h"

#include <nlohmann/json.hpp>
#include <openssl/evp.h>

#include <stdexcept>

std::string ToBase64(std::string_view bytes) {
    std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
    const int size =
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                        reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
    text.resize(static_cast<std::size_t>(size));
    return text;
}

std::string FromBase64(std::string_view text) {
    std::string bytes(text.size() / 4 * 3, '\0');
    if (EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                        reinterpret_cast<const unsigned char*>(text.data()),
                        static_cast<int>(text.size())) < 0)
        throw std::invalid_argument("no Base64");
    for (; text.ends_with('='); text.remove_suffix(1))
        bytes.pop_back();
    return bytes;
}

bool IsUtf8(const std::string& text) {
    try {
        return !nlohmann::json(text).dump().empty();
    } catch (const nlohmann::json::type_error&) {
        return false;
    }
}
