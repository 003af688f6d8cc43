#include "CallRecord.h"

#include "support/Bytes.h"

#include <cctype>
#include <fstream>

namespace {

/// Lower-case digits; null when the bytes are nowhere.
nlohmann::json HexOf(std::span<const CK_BYTE> bytes) {
    if (bytes.data() == nullptr)
        return nullptr;
    std::string hex = ToHex({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    for (char& digit : hex)
        digit = static_cast<char>(std::tolower(digit));
    return hex;
}

struct ToJson {
    template <class Plain>
    nlohmann::json operator()(const Plain& value) const {
        return value;
    }
    nlohmann::json operator()(std::span<const CK_BYTE> bytes) const { return HexOf(bytes); }
    nlohmann::json operator()(std::span<const CK_ATTRIBUTE> attributes) const {
        auto list = nlohmann::json::array();
        if (attributes.data() == nullptr)
            return list;
        for (const CK_ATTRIBUTE& attribute : attributes)
            list.push_back(
                {{"type", attribute.type},
                 {"length", attribute.ulValueLen},
                 {"value", HexOf({static_cast<const CK_BYTE*>(attribute.pValue), attribute.ulValueLen})}});
        return list;
    }
};

} // namespace

nlohmann::json ArgumentsOf(const Call& call, bool isPinShown) {
    auto arguments = nlohmann::json::object();
    for (const auto& [name, value] : call.in)
        if (isPinShown || name != std::string_view("pin"))
            arguments[name] = std::visit(ToJson{}, value);
    return arguments;
}

void AppendCallRecord(const nlohmann::json& entry) {
    std::ofstream file("fake-pkcs11-calls.jsonl", std::ios::app);
    // A PIN need not be UTF-8: a broken byte is shown as U+FFFD.
    file << entry.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << std::endl;
}
