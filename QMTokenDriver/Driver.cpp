#include "Driver.h"

#include "Pkcs11Error.h"

#include <algorithm>

namespace tokendriver {

namespace {

/// Not every maker numbers his tokens: two of the same label, serial number and model are told apart by their
/// slots.
bool IsSamePlace(const SeenToken& one, const SeenToken& other) {
    return one.backend == other.backend && one.slot == other.slot;
}

} // namespace

CK_RV Driver::GetSlotList(CK_SLOT_ID* slots, CK_ULONG& count) {
    if (slots == nullptr || !shown_) {
        shown_.emplace();
        for (const SeenToken& token : ShownTokens(ScanTokens(backends_)))
            shown_->push_back(SlotIdOf(token));
    }
    const CK_ULONG capacity = count;
    count = shown_->size();
    if (slots == nullptr)
        return CKR_OK;
    if (capacity < count)
        return CKR_BUFFER_TOO_SMALL;
    std::copy(shown_->begin(), shown_->end(), slots);
    shown_.reset();
    return CKR_OK;
}

CK_SLOT_ID Driver::SlotIdOf(const SeenToken& seen) {
    const Place place{seen.backend, seen.slot};
    const auto known = std::find(places_.begin(), places_.end(), place);
    if (known != places_.end())
        return static_cast<CK_SLOT_ID>(known - places_.begin()) + 1;
    places_.push_back(place);
    return places_.size();
}

CK_SESSION_HANDLE Driver::OpenSession(CK_SLOT_ID slot, CK_FLAGS flags) {
    if (slot == 0 || slot > places_.size())
        throw Pkcs11Error(CKR_SLOT_ID_INVALID);
    if (sessions_.size() >= kMaxSessions)
        throw Pkcs11Error(CKR_SESSION_COUNT);
    const auto& [backend, slotInModule] = places_[slot - 1];
    const SeenToken seen = LookAtToken(*backend, slotInModule);
    Check(seen.failure);
    auto session =
        std::make_unique<Session>(TokenOf(seen), flags, [this](const SeenToken& lost) { return Find(lost); });
    sessions_.emplace(++lastSession_, std::move(session));
    return lastSession_;
}

Token& Driver::TokenOf(const SeenToken& seen) {
    const auto known =
        std::find_if(tokens_.begin(), tokens_.end(), [&seen](const std::unique_ptr<Token>& token) {
            return token->Seen().identity == seen.identity && IsSamePlace(token->Seen(), seen);
        });
    if (known != tokens_.end())
        return **known;
    return *tokens_.emplace_back(std::make_unique<Token>(seen));
}

Session& Driver::SessionOf(CK_SESSION_HANDLE session) {
    const auto found = sessions_.find(session);
    if (found == sessions_.end())
        throw Pkcs11Error(CKR_SESSION_HANDLE_INVALID);
    return *found->second;
}

std::optional<SeenToken> Driver::Find(const SeenToken& lost) const {
    std::vector<SeenToken> tokens = ScanTokens(backends_);
    std::erase_if(tokens, [&lost](const SeenToken& token) { return !(token.identity == lost.identity); });
    const auto same = std::find_if(tokens.begin(), tokens.end(),
                                   [&lost](const SeenToken& token) { return IsSamePlace(token, lost); });
    if (same != tokens.end())
        return *same;
    return tokens.empty() ? std::nullopt : std::optional(tokens.front());
}

} // namespace tokendriver
