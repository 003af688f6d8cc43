#pragma once

#include "Backends.h"
#include "Session.h"
#include "Token.h"
#include "TokenScan.h"

#include <p11-kit/pkcs11.h>

#include <memory>
#include <optional>
#include <span>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tokendriver {

/// Sessions open at a time; the host opens one.
constexpr std::size_t kMaxSessions = 1024;

/// The driver between C_Initialize and C_Finalize: the modules, the slots and sessions given out. Slot and
/// session identifiers are the driver's own. One thread at a time.
class Driver {
public:
    Driver() = default;

    /// C_GetSlotList: looks at what is plugged in. Only a list whose length was asked for before (`slots` was
    /// null) is the one that was counted then: PKCS#11 section 5.5.
    CK_RV GetSlotList(CK_SLOT_ID* slots, CK_ULONG& count);

    /// C_OpenSession without application and notification. Throws Pkcs11Error.
    CK_SESSION_HANDLE OpenSession(CK_SLOT_ID slot, CK_FLAGS flags);

    /// Throws Pkcs11Error CKR_SESSION_HANDLE_INVALID.
    Session& SessionOf(CK_SESSION_HANDLE session);

private:
    using Place = std::pair<const Backend*, CK_SLOT_ID>;

    CK_SLOT_ID SlotIdOf(const SeenToken& seen);
    Token& TokenOf(const SeenToken& seen);
    std::optional<SeenToken> Find(const SeenToken& lost) const;

    Backends backends_;
    std::vector<Place> places_;                    ///< the slot identifier given out is the index + 1
    std::optional<std::vector<CK_SLOT_ID>> shown_; ///< counted, and not handed over yet
    std::vector<std::unique_ptr<Token>> tokens_;
    std::unordered_map<CK_SESSION_HANDLE, std::unique_ptr<Session>>
        sessions_; ///< destroyed before tokens and modules
    CK_SESSION_HANDLE lastSession_ = 0;
};

} // namespace tokendriver
