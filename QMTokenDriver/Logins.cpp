#include "Logins.h"

#include "Pkcs11Error.h"

namespace tokendriver {

CK_RV Logins::Login(const std::vector<Token*>& tokens, CK_USER_TYPE user, std::span<CK_UTF8CHAR> pin) {
    unbound_.Forget();
    if (tokens.empty())
        return CKR_DEVICE_REMOVED;
    if (tokens.size() == 1)
        return tokens.front()->CallWithReconnect([&] { return tokens.front()->Login(user, pin); });
    if (user != CKU_USER)
        return CKR_USER_TYPE_INVALID;
    unbound_.Keep(pin);
    return CKR_OK;
}

/// `typed` may hold a PIN that the user typed for this token; if not, the user is asked, unless there is a
/// PIN pad or the PIN is locked.
CK_RV Logins::LoginTo(Token& token, KeptPin& typed) {
    token.LookAgain();
    if (!token.HasPinPad() && !typed.IsKept()) {
        if ((token.Seen().tokenInfo.flags & CKF_USER_PIN_LOCKED) != 0)
            return CKR_PIN_LOCKED;
        if (const CK_RV asked = askForPin_(token.Seen(), typed); asked != CKR_OK)
            return asked;
        if (!typed.IsKept()) // no memory may be locked
            return CKR_HOST_MEMORY;
    }
    const CK_RV answer = token.Login(CKU_USER, typed.Text());
    if (!IsGone(answer)) // answered: never a second time
        typed.Forget();
    return answer == CKR_USER_ALREADY_LOGGED_IN ? CKR_OK : answer;
}

} // namespace tokendriver
