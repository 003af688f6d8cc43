#pragma once

#include "CertificateFacts.h"
#include "QMTokenDriver/Backends.h"
#include "QMTokenDriver/KeptPin.h"
#include "QMTokenDriver/ModuleProbe.h"
#include "QMTokenDriver/Offered.h"
#include "QMTokenDriver/TokenScan.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

/// What quillmark-tokens tells: everything that p11-kit knows, what of it the host is offered, and why the
/// rest is not.

namespace tokendriver::tool {

struct CertificateEntry {
    std::string id;                        ///< as the driver shows it
    std::optional<CertificateFacts> facts; ///< nothing: it could not be read
    Offer offer;                           ///< by the driver's rule
    bool needsLogin = false;               ///< whether its private key is there only shows after login
    bool isFirst = false;                  ///< the first in the window, which is filled before any login

    /// As far as was seen.
    bool CanSign() const { return offer.IsOffered() && offer.reasons.empty(); }
};

/// How the login went that the user asked for.
enum class LoginOutcome { NotTried, Done, Failed };

struct TokenEntry {
    SeenToken seen;
    std::string objection; ///< why none of its certificates is offered; empty: some may be
    LoginOutcome login = LoginOutcome::NotTried;
    std::string loginAnswer; ///< in words; empty without a login
    std::vector<CertificateEntry> certificates;
};

struct SlotEntry {
    std::string description;
    std::optional<TokenEntry> token; ///< nothing: the slot is empty
};

struct ModuleEntry {
    std::string name;
    std::string path;      ///< empty when the module was not loaded
    std::string objection; ///< why it is not used; empty: it is
    std::vector<SlotEntry> slots;
};

using Inventory = std::vector<ModuleEntry>;

/// Logs in where the user wants it: puts the PIN of this token into `pin`, or answers false for none. A token
/// with a PIN pad is asked about too; its PIN stays empty.
using AskForPin = std::function<bool(const SeenToken& token, KeptPin& pin)>;

/// Goes through all modules. `probed` is what ProbeEachAlone found. Logs in only with an `askForPin`, which
/// may be empty.
Inventory TakeInventory(const Backends& backends, const std::vector<ProbeResult>& probed,
                        const AskForPin& askForPin);

/// Whether a login failed that was tried.
bool HasFailedLogin(const Inventory& inventory);

/// How many certificates can sign, as far as was seen.
std::size_t CountUsable(const Inventory& inventory);

} // namespace tokendriver::tool
