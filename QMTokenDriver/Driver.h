#pragma once

#include "Backends.h"
#include "Catalogue.h"
#include "GivenObjects.h"
#include "Logins.h"
#include "Session.h"

#include <p11-kit/pkcs11.h>

#include <memory>
#include <unordered_map>
#include <vector>

namespace tokendriver {

/// Sessions open at a time; the host opens one.
constexpr std::size_t kMaxSessions = 1024;

/// The driver between C_Initialize and C_Finalize: one slot with what is on all tokens, and the sessions
/// given out. One thread at a time.
class Driver {
public:
    /// Over these modules, which outlive it.
    Driver(const std::vector<Backend>& modules, AskForPin askForPin)
        : modules_(modules), catalogue_(modules), logins_(std::move(askForPin)) {}

    /// C_GetSlotList: one slot where a token that can sign is plugged in, else none. Only a list whose length
    /// was asked for before (`slots` was null) is the one that was counted then: PKCS#11 section 5.5.
    CK_RV GetSlotList(CK_SLOT_ID* slots, CK_ULONG& count);

    /// C_OpenSession without application and notification. Throws Pkcs11Error.
    CK_SESSION_HANDLE OpenSession(CK_SLOT_ID slot);

    /// Throws Pkcs11Error CKR_SESSION_HANDLE_INVALID.
    Session& SessionOf(CK_SESSION_HANDLE session);

private:
    bool HasToken() const;

    const std::vector<Backend>& modules_;
    Catalogue catalogue_;
    GivenObjects objects_;
    Logins logins_;
    std::optional<CK_ULONG> counted_; ///< slots counted, and not handed over yet
    std::unordered_map<CK_SESSION_HANDLE, std::unique_ptr<Session>> sessions_; ///< destroyed first
    CK_SESSION_HANDLE lastSession_ = 0;
};

} // namespace tokendriver
