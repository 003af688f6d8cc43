#include "Inventory.h"

#include "QMTokenDriver/Ckr.h"
#include "QMTokenDriver/TokenReader.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <iterator>

namespace tokendriver::tool {

namespace {

std::string TokenObjection(const SeenToken& seen) {
    switch (seen.verdict) {
    case TokenVerdict::Shown:
        return {};
    case TokenVerdict::NotInitialised:
        return "token not initialised";
    case TokenVerdict::CannotSignWithRsa:
        return "it cannot sign with RSA";
    case TokenVerdict::NotReadable:
        break;
    }
    return DescribeAnswer(seen.failure);
}

/// Why none of a token's certificates can sign: no one can log in; empty when one can.
std::string PinObjection(CK_FLAGS flags) {
    if ((flags & CKF_USER_PIN_LOCKED) != 0)
        return "its PIN is locked";
    const bool isUnset = (flags & CKF_LOGIN_REQUIRED) != 0 && (flags & CKF_USER_PIN_INITIALIZED) == 0;
    return isUnset ? "its PIN is not set" : "";
}

template <class Number>
std::optional<Number> ReadNumber(TokenReader& reader, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
    const std::optional<Bytes> value = reader.Value(object, type);
    if (!value || value->size() != sizeof(Number))
        return std::nullopt;
    Number number{};
    std::memcpy(&number, value->data(), sizeof number);
    return number;
}

Bytes WithoutLeadingZeros(Bytes number) {
    number.erase(number.begin(),
                 std::find_if(number.begin(), number.end(), [](CK_BYTE byte) { return byte != 0; }));
    return number;
}

/// Why this private key does not sign for the certificate whose id it has; empty when it does.
std::string KeyObjection(TokenReader& reader, CK_OBJECT_HANDLE key, const CertificateFacts& facts) {
    if (ReadNumber<CK_KEY_TYPE>(reader, key, CKA_KEY_TYPE).value_or(CKK_RSA) != CKK_RSA)
        return "not RSA: the private key with its id";
    if (ReadNumber<CK_BBOOL>(reader, key, CKA_SIGN).value_or(CK_TRUE) == CK_FALSE)
        return "the private key with its id may not sign";
    const std::optional<Bytes> modulus = reader.Value(key, CKA_MODULUS); // some tokens do not tell it
    if (modulus && !modulus->empty() && WithoutLeadingZeros(*modulus) != facts.modulus)
        return "the private key with its id belongs to another certificate";
    return {};
}

/// The driver hands the host the first key with the id: so it is the first that counts.
void JudgeKey(TokenReader& reader, const Bytes& id, bool isLoggedIn, CertificateEntry& entry) {
    const std::vector<CK_OBJECT_HANDLE> keys = reader.PrivateKeys(id);
    if (keys.empty() && isLoggedIn)
        entry.objections.emplace_back("no private key with its id");
    else if (keys.empty())
        entry.needsLogin = true;
    else if (const std::string objection = KeyObjection(reader, keys.front(), *entry.facts);
             !objection.empty())
        entry.objections.push_back(objection);
}

CertificateEntry Look(TokenReader& reader, CK_OBJECT_HANDLE object, bool isLoggedIn) {
    CertificateEntry entry;
    const Bytes id = reader.Value(object, CKA_ID).value_or(Bytes{});
    entry.id = HexText(id.data(), id.size());
    if (const std::optional<Bytes> der = reader.Value(object, CKA_VALUE))
        entry.facts = ReadCertificate(*der, std::time(nullptr));
    if (!entry.facts) {
        entry.objections.emplace_back("it cannot be read");
        return entry;
    }
    entry.objections = entry.facts->objections;
    if (entry.objections.empty())
        JudgeKey(reader, id, isLoggedIn, entry);
    return entry;
}

bool Login(TokenReader& reader, TokenEntry& token, const AskForPin& askForPin) {
    if ((token.seen.tokenInfo.flags & CKF_LOGIN_REQUIRED) == 0)
        return true; // nothing is hidden
    KeptPin pin;
    if (!askForPin || !token.objection.empty() || !askForPin(token.seen, pin))
        return false;
    const CK_RV answer = reader.Login(pin.Text().data(), pin.Text().size());
    token.login = answer == CKR_OK ? "logged in" : DescribeAnswer(answer);
    return answer == CKR_OK;
}

TokenEntry Look(SeenToken seen, const AskForPin& askForPin) {
    TokenEntry token{std::move(seen), false, {}, {}, {}};
    token.objection = TokenObjection(token.seen);
    if (token.seen.verdict == TokenVerdict::NotReadable || token.seen.verdict == TokenVerdict::NotInitialised)
        return token;
    TokenReader reader(*token.seen.backend->functions, token.seen.slot);
    if (reader.Opened() != CKR_OK) {
        token.objection = DescribeAnswer(reader.Opened());
        return token;
    }
    const bool isLoggedIn = Login(reader, token, askForPin);
    const std::string pinObjection = PinObjection(token.seen.tokenInfo.flags);
    for (const CK_OBJECT_HANDLE object : reader.Certificates()) {
        CertificateEntry& entry = token.certificates.emplace_back(Look(reader, object, isLoggedIn));
        if (!pinObjection.empty())
            entry.objections.push_back(pinObjection);
    }
    return token;
}

ModuleEntry Look(const Backend& backend, const AskForPin& askForPin) {
    ModuleEntry module{backend.name, backend.path, {}, {}};
    CK_RV failure = CKR_OK;
    const std::vector<CK_SLOT_ID> slots = SlotsOf(backend, false, &failure);
    if (failure != CKR_OK)
        module.objection = DescribeAnswer(failure);
    for (const CK_SLOT_ID slot : slots) {
        SeenToken seen = LookAtToken(backend, slot);
        const CK_SLOT_INFO& info = seen.slotInfo;
        SlotEntry entry{PaddedText(info.slotDescription, std::size(info.slotDescription)), {}};
        if ((info.flags & CKF_TOKEN_PRESENT) != 0)
            entry.token = Look(std::move(seen), askForPin);
        module.slots.push_back(std::move(entry));
    }
    return module;
}

/// Marks the token that the host uses, and objects to the others: it never looks at them.
void MarkFirst(const Backends& backends, Inventory& inventory) {
    const std::vector<SeenToken> shown = ShownTokens(ScanTokens(backends));
    for (ModuleEntry& module : inventory)
        for (SlotEntry& slot : module.slots) {
            if (!slot.token || slot.token->seen.verdict != TokenVerdict::Shown || shown.empty())
                continue;
            const SeenToken& first = shown.front();
            slot.token->isFirst =
                slot.token->seen.backend == first.backend && slot.token->seen.slot == first.slot;
            if (!slot.token->isFirst && slot.token->objection.empty())
                slot.token->objection =
                    "the signing program uses the first token only: " + first.identity.label;
        }
}

/// Why a module of the configuration is not among those loaded.
std::string ProbeObjection(const ProbeResult& probed) {
    if (DoesHarm(probed))
        return DescribeHarm(probed);
    return probed.message.empty() ? "not enabled for QMTokenDriver, or not read for this user"
                                  : probed.message;
}

} // namespace

Inventory TakeInventory(const Backends& backends, const std::vector<ProbeResult>& probed,
                        const AskForPin& askForPin) {
    Inventory inventory;
    for (const Backend& backend : backends.Modules())
        inventory.push_back(Look(backend, askForPin));
    MarkFirst(backends, inventory);
    for (const SkippedModule& skipped : backends.Skipped())
        inventory.push_back({skipped.name, skipped.path, skipped.reason, {}});
    for (const ProbeResult& result : probed) {
        const bool isListed =
            std::any_of(inventory.begin(), inventory.end(),
                        [&result](const ModuleEntry& module) { return module.name == result.name; });
        if (!isListed)
            inventory.push_back({result.name, {}, ProbeObjection(result), {}});
    }
    return inventory;
}

std::size_t CountUsable(const Inventory& inventory) {
    std::size_t usable = 0;
    for (const ModuleEntry& module : inventory)
        for (const SlotEntry& slot : module.slots)
            if (slot.token && slot.token->objection.empty())
                usable += static_cast<std::size_t>(
                    std::count_if(slot.token->certificates.begin(), slot.token->certificates.end(),
                                  [](const CertificateEntry& entry) { return entry.objections.empty(); }));
    return usable;
}

} // namespace tokendriver::tool
