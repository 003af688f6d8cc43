#include "Utf8.h"

#include <openssl/asn1.h>

#include <algorithm>

Utf8Character FirstUtf8Character(std::string_view text) {
    unsigned long codePoint = 0;
    const int size = UTF8_getc(reinterpret_cast<const unsigned char*>(text.data()),
                               static_cast<int>(std::min<std::size_t>(text.size(), 4)), &codePoint);
    if (size <= 0 || codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF))
        return {0, 0};
    return {codePoint, static_cast<std::size_t>(size)};
}

std::string ValidUtf8(std::string_view text) {
    std::string valid;
    while (!text.empty()) {
        const std::size_t size = FirstUtf8Character(text).size;
        if (size > 0)
            valid += text.substr(0, size);
        else
            valid += "\xEF\xBF\xBD";
        text.remove_prefix(std::max<std::size_t>(size, 1));
    }
    return valid;
}
