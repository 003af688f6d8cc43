#include "Driver.h"

#include "Pkcs11Error.h"
#include "TokenLog.h"

namespace tokendriver {

namespace {

/// The only one.
constexpr CK_SLOT_ID kSlot = 1;

} // namespace

bool Driver::HasToken() const {
    const std::vector<SeenToken> all = ScanTokens(modules_);
    if (!TokensThatCanSign(all).empty())
        return true;
    WriteTokenLog("no token that can sign is there");
    for (const SeenToken& token : all)
        WriteTokenLog("not usable: the token \"" + token.identity.label + "\" of the module " +
                      token.backend->name + ", " + ObjectionTo(token));
    return false;
}

CK_RV Driver::GetSlotList(CK_SLOT_ID* slots, CK_ULONG& count) {
    if (slots == nullptr || !counted_)
        counted_ = HasToken() ? 1 : 0;
    const CK_ULONG capacity = count;
    count = *counted_;
    if (slots == nullptr)
        return CKR_OK;
    if (capacity < count)
        return CKR_BUFFER_TOO_SMALL;
    if (count > 0)
        *slots = kSlot;
    counted_.reset();
    return CKR_OK;
}

CK_SESSION_HANDLE Driver::OpenSession(CK_SLOT_ID slot) {
    if (slot != kSlot)
        throw Pkcs11Error(CKR_SLOT_ID_INVALID);
    if (sessions_.size() >= kMaxSessions)
        throw Pkcs11Error(CKR_SESSION_COUNT);
    if (!HasToken())
        throw Pkcs11Error(CKR_TOKEN_NOT_PRESENT);
    sessions_.emplace(++lastSession_, std::make_unique<Session>(catalogue_, objects_, logins_));
    return lastSession_;
}

Session& Driver::SessionOf(CK_SESSION_HANDLE session) {
    const auto found = sessions_.find(session);
    if (found == sessions_.end())
        throw Pkcs11Error(CKR_SESSION_HANDLE_INVALID);
    return *found->second;
}

} // namespace tokendriver
