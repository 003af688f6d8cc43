#pragma once

#include "KeptPin.h"
#include "Token.h"

#include <p11-kit/pkcs11.h>

#include <functional>
#include <span>
#include <vector>

namespace tokendriver {

/// Asks the user for the PIN of this token and puts it into `pin`: CKR_OK. CKR_FUNCTION_CANCELED when the
/// user gives none, CKR_USER_NOT_LOGGED_IN when there is nothing to ask with.
using AskForPin = std::function<CK_RV(const SeenToken& token, KeptPin& pin)>;

/// Which PIN goes to which token. With one token, the PIN that the host was given is that token's. With
/// several the host does not say whose it is: it belongs to the token of the key that is looked for next, and
/// to no other. For any further token the user is asked here.
class Logins {
public:
    explicit Logins(AskForPin askForPin) : askForPin_(std::move(askForPin)) {}

    /// C_Login as the host calls it, after it was shown the certificates of these tokens.
    CK_RV Login(const std::vector<Token*>& tokens, CK_USER_TYPE user, std::span<CK_UTF8CHAR> pin);

    /// Runs `find`, which looks for a key on this token, with the user logged in there. `several`: whether it
    /// is one of several tokens.
    template <class Call>
    CK_RV CallLoggedIn(Token& token, bool several, Call find) {
        KeptPin typed = std::move(unbound_); // after this call it is tried, or forgotten
        const bool isAskedHere = several || typed.IsKept();
        return token.CallWithReconnect([&] {
            if (isAskedHere && !token.IsLoggedIn())
                Check(LoginTo(token, typed));
            return find();
        });
    }

    /// Forgets a PIN whose token is not known yet.
    void ForgetUnbound() { unbound_.Forget(); }

private:
    CK_RV LoginTo(Token& token, KeptPin& typed);

    AskForPin askForPin_;
    KeptPin unbound_; ///< typed for a token that is not known yet
};

} // namespace tokendriver
