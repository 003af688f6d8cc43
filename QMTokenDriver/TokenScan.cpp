#include "TokenScan.h"

#include "Ckr.h"
#include "Mechanisms.h"

#include <algorithm>
#include <iterator>

namespace tokendriver {

namespace {

/// Readers and soft tokens have a few slots, network HSMs some dozens.
constexpr CK_ULONG kMaxSlotsPerModule = 1024;

/// A slot plugged in between the two calls of a listing makes it too long for its buffer; more than a few
/// such in a row are a broken module.
constexpr int kListingAttempts = 3;

/// The standard names about 400 mechanisms; a token lists each once.
constexpr CK_ULONG kMaxMechanisms = 4096;

std::vector<CK_MECHANISM_TYPE> ListedMechanisms(const Backend& backend, CK_SLOT_ID slot) {
    CK_ULONG count = 0;
    if (backend.functions->C_GetMechanismList(slot, nullptr, &count) != CKR_OK || count > kMaxMechanisms)
        return {};
    std::vector<CK_MECHANISM_TYPE> listed(count);
    if (count > 0 && backend.functions->C_GetMechanismList(slot, listed.data(), &count) != CKR_OK)
        return {};
    listed.resize(std::min<std::size_t>(count, listed.size()));
    return listed;
}

// Only what is listed is asked for: p11-kit's trust module complains on stderr about all else.
SigningMechanisms MechanismsOf(const Backend& backend, CK_SLOT_ID slot) {
    SigningMechanisms mechanisms{ListedMechanisms(backend, slot)};
    std::erase_if(mechanisms.offered, [&](CK_MECHANISM_TYPE mechanism) {
        if (!IsKnown(mechanism))
            return true;
        CK_MECHANISM_INFO info{};
        return backend.functions->C_GetMechanismInfo(slot, mechanism, &info) != CKR_OK ||
               (info.flags & CKF_SIGN) == 0;
    });
    return mechanisms;
}

TokenVerdict Judge(const SeenToken& token) {
    if (token.failure != CKR_OK)
        return TokenVerdict::NotReadable;
    if ((token.tokenInfo.flags & CKF_TOKEN_INITIALIZED) == 0)
        return TokenVerdict::NotInitialised;
    return token.mechanisms.offered.empty() ? TokenVerdict::CannotSignWithRsa : TokenVerdict::CanSign;
}

} // namespace

bool SigningMechanisms::Has(CK_MECHANISM_TYPE mechanism) const {
    return std::find(offered.begin(), offered.end(), mechanism) != offered.end();
}

std::string PaddedText(const CK_UTF8CHAR* field, std::size_t length) {
    std::string text(field, std::find(field, field + length, CK_UTF8CHAR{0}));
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

TokenIdentity IdentityOf(const CK_TOKEN_INFO& info) {
    return {PaddedText(info.label, std::size(info.label)),
            PaddedText(info.serialNumber, std::size(info.serialNumber)),
            PaddedText(info.model, std::size(info.model)),
            PaddedText(info.manufacturerID, std::size(info.manufacturerID))};
}

SeenToken LookAtToken(const Backend& backend, CK_SLOT_ID slot) {
    SeenToken token{&backend, slot, {}, {}, {}, {}, TokenVerdict::NotReadable, CKR_OK};
    token.failure = backend.functions->C_GetSlotInfo(slot, &token.slotInfo);
    if (token.failure == CKR_OK)
        token.failure = backend.functions->C_GetTokenInfo(slot, &token.tokenInfo);
    if (token.failure == CKR_OK) {
        token.identity = IdentityOf(token.tokenInfo);
        token.mechanisms = MechanismsOf(backend, slot);
    }
    token.verdict = Judge(token);
    return token;
}

std::string ObjectionTo(const SeenToken& token) {
    switch (token.verdict) {
    case TokenVerdict::CanSign:
        return {};
    case TokenVerdict::NotInitialised:
        return "token not initialised";
    case TokenVerdict::CannotSignWithRsa:
        return "it cannot sign with RSA";
    case TokenVerdict::NotReadable:
        break;
    }
    return DescribeAnswer(token.failure);
}

std::vector<CK_SLOT_ID> SlotsOf(const Backend& backend, bool tokenPresent, CK_RV* failure) {
    std::vector<CK_SLOT_ID> slots;
    CK_RV answer = CKR_BUFFER_TOO_SMALL;
    for (int attempt = 0; attempt < kListingAttempts && answer == CKR_BUFFER_TOO_SMALL; ++attempt) {
        CK_ULONG count = 0;
        answer = backend.functions->C_GetSlotList(tokenPresent ? CK_TRUE : CK_FALSE, nullptr, &count);
        if (answer != CKR_OK)
            break;
        slots.resize(std::min(count, kMaxSlotsPerModule));
        count = slots.size();
        if (!slots.empty())
            answer =
                backend.functions->C_GetSlotList(tokenPresent ? CK_TRUE : CK_FALSE, slots.data(), &count);
        slots.resize(std::min<std::size_t>(count, slots.size()));
    }
    if (failure != nullptr)
        *failure = answer;
    if (answer != CKR_OK)
        slots.clear();
    return slots;
}

std::vector<SeenToken> ScanTokens(const std::vector<Backend>& modules) {
    std::vector<SeenToken> tokens;
    for (const Backend& module : modules)
        for (const CK_SLOT_ID slot : SlotsOf(module, true))
            tokens.push_back(LookAtToken(module, slot));
    return tokens;
}

std::vector<SeenToken> TokensThatCanSign(std::vector<SeenToken> all) {
    std::erase_if(all, [](const SeenToken& token) { return token.verdict != TokenVerdict::CanSign; });
    std::stable_partition(all.begin(), all.end(),
                          [](const SeenToken& token) { return (token.slotInfo.flags & CKF_HW_SLOT) != 0; });
    return all;
}

} // namespace tokendriver
