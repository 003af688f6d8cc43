#include "InventoryReport.h"

#include <nlohmann/json.hpp>

#include <algorithm>
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

std::string Joined(const std::vector<std::string>& parts) {
    std::string text;
    for (const std::string& part : parts)
        text += (text.empty() ? "" : "; ") + part;
    return text;
}

void Write(std::ostream& out, const CertificateEntry& entry, bool isTokenOffered) {
    const bool isOffered = isTokenOffered && entry.objections.empty();
    out << "      " << (isOffered ? "can sign:    " : "not offered: ")
        << (entry.facts ? Printable(entry.facts->subject) : "a certificate") << '\n';
    if (!entry.objections.empty())
        out << "        because: " << Printable(Joined(entry.objections)) << '\n';
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
    if (token.isFirst)
        out << "      the signing program uses this token\n";
    if (!token.objection.empty())
        out << "      not offered: " << Printable(token.objection) << '\n';
    if (!token.login.empty())
        out << "      login: " << token.login << '\n';
    if ((info.flags & CKF_USER_PIN_LOCKED) != 0)
        out << "      its PIN is locked\n";
    else if ((info.flags & CKF_USER_PIN_FINAL_TRY) != 0)
        out << "      one try is left for its PIN\n";
    if (token.seen.verdict ==
        TokenVerdict::CannotSignWithRsa) { // p11-kit's own holds all certificate authorities
        out << "      certificates: " << token.certificates.size() << '\n';
        return;
    }
    for (const CertificateEntry& entry : token.certificates)
        Write(out, entry, token.objection.empty());
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

Json JsonOf(const CertificateEntry& entry, bool isTokenOffered) {
    Json json = {{"id", entry.id},
                 {"offered", isTokenOffered && entry.objections.empty()},
                 {"needsLogin", entry.needsLogin},
                 {"reasons", entry.objections}};
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

Json JsonOf(const TokenEntry& token) {
    const CK_TOKEN_INFO& info = token.seen.tokenInfo;
    Json json = {{"label", Field(info.label)},    {"manufacturer", Field(info.manufacturerID)},
                 {"model", Field(info.model)},    {"serialNumber", Field(info.serialNumber)},
                 {"hardware", IsHardware(token)}, {"offered", token.objection.empty()},
                 {"first", token.isFirst}};
    AddUnlessEmpty(json, "reason", token.objection);
    AddUnlessEmpty(json, "login", token.login);
    json["certificates"] = Json::array();
    for (const CertificateEntry& entry : token.certificates)
        json["certificates"].push_back(JsonOf(entry, token.objection.empty()));
    return json;
}

Json JsonOf(const ModuleEntry& module) {
    Json json = {{"name", module.name}, {"path", module.path}, {"used", module.objection.empty()}};
    AddUnlessEmpty(json, "reason", module.objection);
    json["slots"] = Json::array();
    for (const SlotEntry& slot : module.slots) {
        Json entry = {{"description", slot.description}};
        if (slot.token)
            entry["token"] = JsonOf(*slot.token);
        json["slots"].push_back(std::move(entry));
    }
    return json;
}

} // namespace

std::string Printable(std::string text) {
    std::replace_if(
        text.begin(), text.end(),
        [](unsigned char character) { return character < 0x20 || character == 0x7f; }, '?');
    return text;
}

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

std::string JsonReport(const Inventory& inventory) {
    Json report = {{"canSign", CountUsable(inventory)}, {"modules", Json::array()}};
    for (const ModuleEntry& module : inventory)
        report["modules"].push_back(JsonOf(module));
    // Labels need not be UTF-8; what is not becomes U+FFFD.
    return report.dump(2, ' ', false, Json::error_handler_t::replace) + '\n';
}

} // namespace tokendriver::tool
