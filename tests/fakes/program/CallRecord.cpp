#include "CallRecord.h"

#include <fstream>

nlohmann::json HexOf(const void* bytes, CK_ULONG length) {
    if (!bytes)
        return nullptr;
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    for (CK_ULONG i = 0; i < length; ++i) {
        const unsigned char byte = static_cast<const unsigned char*>(bytes)[i];
        hex += {kDigits[byte >> 4], kDigits[byte & 15]};
    }
    return hex;
}

nlohmann::json TemplateJson(const CK_ATTRIBUTE* attributes, CK_ULONG count) {
    auto list = nlohmann::json::array();
    for (CK_ULONG i = 0; attributes && i < count; ++i) {
        const CK_ATTRIBUTE& attribute = attributes[i];
        list.push_back({{"type", attribute.type},
                        {"length", attribute.ulValueLen},
                        {"value", HexOf(attribute.pValue, attribute.ulValueLen)}});
    }
    return list;
}

void AppendCallRecord(const nlohmann::json& entry) {
    std::ofstream file("fake-pkcs11-calls.jsonl", std::ios::app);
    // A PIN need not be UTF-8: a broken byte is shown as U+FFFD.
    file << entry.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << std::endl;
}
