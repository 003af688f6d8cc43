#pragma once

#include "KeptPin.h"
#include "TokenScan.h"

#include <p11-kit/pkcs11.h>

#include <chrono>

namespace tokendriver {

/// How long the user may take: a page waits for its signature meanwhile.
constexpr std::chrono::seconds kTimeForPin{180};

/// Asks for the PIN of this token with the desktop's own pinentry, as an AskForPin (Logins.h). It names the
/// token and its serial number, and says when one try is left. The PIN goes through a socket: never into a
/// file, an argument, the environment or a log.
///
/// The command is the first `pinentry` in PATH. Without one, or with neither a display nor a terminal
/// (GPG_TTY) to ask on: CKR_USER_NOT_LOGGED_IN. Cancelled, nothing typed, or not within the time:
/// CKR_FUNCTION_CANCELED. One that hangs is given up a little later, and is none.
CK_RV AskByPinentry(const SeenToken& token, KeptPin& pin, std::chrono::seconds timeToAnswer = kTimeForPin);

} // namespace tokendriver
