#include "InventoryReport.h"

#include "QMTokenDriver/TokenLog.h"

#include <nlohmann/json.hpp>

#include <iterator>
#include <sstream>

namespace tokendriver::tool {

namespace {

using Json = nlohmann::ordered_json;

template <std::size_t Size>
std::string Field(const CK_UTF8CHAR (&field)[Size]) {
    return PaddedText(field, Size);
}

bool IsHardware(const TokenEntry& token) { return (token.seen.slotInfo.flags & CKF_HW_SLOT) != 0; }

/// What the token says of the tries that are left for its PIN; empty when it says nothing.
std::string PinText(const TokenEntry& token) {
    const CK_FLAGS flags = token.seen.tokenInfo.flags;
    if ((flags & CKF_USER_PIN_LOCKED) != 0)
        return "locked";
    if ((flags & CKF_USER_PIN_FINAL_TRY) != 0)
        return "one try is left";
    return (flags & CKF_USER_PIN_COUNT_LOW) != 0 ? "fewer tries are left than at first" : "";
}

bool IsOffered(const TokenEntry& token, const CertificateEntry& entry) {
    return token.objection.empty() && entry.offer.IsOffered();
}

bool CanSign(const TokenEntry& token, const CertificateEntry& entry) {
    return token.objection.empty() && entry.CanSign();
}

void Write(std::ostream& out, const TokenEntry& token, const CertificateEntry& entry) {
    const char* standing = CanSign(token, entry) ? "can sign:    " : "offered:     ";
    out << "      " << (IsOffered(token, entry) ? standing : "not offered: ")
        << (entry.facts ? Printable(entry.facts->subject) : "a certificate") << '\n';
    if (entry.isFirst)
        out << "        the first in the window"
            << (IsOffered(token, entry) ? "\n" : ", which is filled before the login\n");
    if (!entry.offer.reasons.empty())
        out << "        " << (IsOffered(token, entry) ? "but: " : "because: ")
            << Printable(entry.offer.ReasonsText()) << '\n';
    else if (entry.needsLogin)
        out << "        as far as can be seen: whether its private key is there shows after login "
               "(--login)\n";
    if (entry.facts)
        out << "        valid " << entry.facts->notBefore << " to " << entry.facts->notAfter << ", id "
            << (entry.id.empty() ? "empty" : entry.id) << ", thumbprint " << entry.facts->thumbprint << '\n';
}

void Write(std::ostream& out, const TokenEntry& token) {
    const CK_TOKEN_INFO& info = token.seen.tokenInfo;
    if (token.seen.verdict == TokenVerdict::NotReadable) {
        out << "    token not readable: " << token.objection << '\n';
        return;
    }
    out << "    token \"" << Printable(Field(info.label)) << "\", " << Printable(Field(info.model))
        << ", serial number " << Printable(Field(info.serialNumber))
        << (IsHardware(token) ? ", hardware" : "") << '\n';
    if (!token.objection.empty())
        out << "      not offered: " << Printable(token.objection) << '\n';
    if (!token.loginAnswer.empty())
        out << "      login: " << token.loginAnswer << '\n';
    if (const std::string pin = PinText(token); !pin.empty())
        out << "      its PIN: " << pin << '\n';
    if (token.seen.verdict ==
        TokenVerdict::CannotSignWithRsa) { // p11-kit's own holds all certificate authorities
        out << "      certificates: " << token.certificates.size() << '\n';
        return;
    }
    for (const CertificateEntry& entry : token.certificates)
        Write(out, token, entry);
    if (token.certificates.empty() && token.objection.empty())
        out << "      no certificate to be seen\n";
}

void Write(std::ostream& out, const ModuleEntry& module) {
    out << module.name << (module.path.empty() ? "" : " (" + module.path + ")") << '\n';
    if (!module.objection.empty())
        out << "  not used: " << Printable(module.objection) << '\n';
    else if (module.slots.empty())
        out << "  no slots\n";
    for (const SlotEntry& slot : module.slots) {
        out << "  slot: " << Printable(slot.description) << '\n';
        if (slot.token)
            Write(out, *slot.token);
        else
            out << "    no token in it\n";
    }
}

Json JsonOf(const TokenEntry& token, const CertificateEntry& entry) {
    Json json = {
        {"id", entry.id},         {"offered", IsOffered(token, entry)}, {"canSign", CanSign(token, entry)},
        {"first", entry.isFirst}, {"needsLogin", entry.needsLogin},     {"reasons", entry.offer.reasons}};
    if (entry.facts)
        json.update(Json{{"subject", entry.facts->subject},
                         {"issuer", entry.facts->issuer},
                         {"serialNumber", entry.facts->serialNumber},
                         {"thumbprint", entry.facts->thumbprint},
                         {"notBefore", entry.facts->notBefore},
                         {"notAfter", entry.facts->notAfter}});
    return json;
}

void AddUnlessEmpty(Json& json, const char* member, const std::string& text) {
    if (!text.empty())
        json[member] = text;
}

Json JsonOf(const TokenEntry& token, bool all) {
    const CK_TOKEN_INFO& info = token.seen.tokenInfo;
    Json json = {{"label", Field(info.label)},    {"manufacturer", Field(info.manufacturerID)},
                 {"model", Field(info.model)},    {"serialNumber", Field(info.serialNumber)},
                 {"hardware", IsHardware(token)}, {"offered", token.objection.empty()}};
    AddUnlessEmpty(json, "reason", token.objection);
    AddUnlessEmpty(json, "login", token.loginAnswer);
    AddUnlessEmpty(json, "pin", PinText(token));
    json["certificateCount"] = token.certificates.size();
    json["certificates"] = Json::array();
    if (all || token.seen.verdict == TokenVerdict::CanSign)
        for (const CertificateEntry& entry : token.certificates)
            json["certificates"].push_back(JsonOf(token, entry));
    return json;
}

Json JsonOf(const ModuleEntry& module, bool all) {
    Json json = {{"name", module.name}, {"path", module.path}, {"used", module.objection.empty()}};
    AddUnlessEmpty(json, "reason", module.objection);
    json["slots"] = Json::array();
    for (const SlotEntry& slot : module.slots) {
        Json entry = {{"description", slot.description}};
        if (slot.token)
            entry["token"] = JsonOf(*slot.token, all);
        json["slots"].push_back(std::move(entry));
    }
    return json;
}

} // namespace

std::string TextReport(const Inventory& inventory) {
    std::ostringstream out;
    for (const ModuleEntry& module : inventory)
        Write(out, module);
    if (inventory.empty())
        out << "p11-kit knows no modules.\n";
    const std::size_t usable = CountUsable(inventory);
    out << (usable == 1 ? "1 certificate" : std::to_string(usable) + " certificates")
        << " can sign, as far as was seen.\n";
    return out.str();
}

std::string JsonReport(const Inventory& inventory, bool all) {
    Json report = {{"canSign", CountUsable(inventory)}, {"modules", Json::array()}};
    for (const ModuleEntry& module : inventory)
        report["modules"].push_back(JsonOf(module, all));
    // Labels need not be UTF-8; what is not becomes U+FFFD.
    return report.dump(2, ' ', false, Json::error_handler_t::replace) + '\n';
}

} // namespace tokendriver::tool
