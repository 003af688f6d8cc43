#pragma once

#include "KeptPin.h"
#include "Offered.h"
#include "Pkcs11Error.h"
#include "TokenScan.h"

#include <p11-kit/pkcs11.h>

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tokendriver {

/// A token where it is plugged in now, the driver's session on it, and the certificates read in that session:
/// so it is certain whose they are.
struct PluggedToken {
    /// Opens the session and reads. Throws Pkcs11Error.
    explicit PluggedToken(const SeenToken& seenToken);

    SeenToken seen;
    std::unique_ptr<ModuleSession> session;
    std::vector<FoundCertificate> certificates;
};

/// One token, for as long as the driver runs, wherever it is plugged in: the driver's session on it, whether
/// the user is logged in, and the PIN for logging in again. A "visit" is the time from one finding of the
/// token to the next: the module's object handles hold for one visit.
///
/// It is the same token only when a user's certificate that was on it is there again, byte for byte: label,
/// serial number and model are alike on tokens of makers who do not number them.
class Token {
public:
    /// Finds a token that was lost, where it now is.
    using FindToken = std::function<std::optional<PluggedToken>(Token& lost)>;

    Token(PluggedToken plugged, FindToken findToken);

    const SeenToken& Seen() const { return seen_; }
    unsigned Visit() const { return visit_; }
    const std::vector<FoundCertificate>& Certificates() const { return certificates_; }
    bool HasPinPad() const { return (seen_.tokenInfo.flags & CKF_PROTECTED_AUTHENTICATION_PATH) != 0; }

    /// "Asha's card" (serial number 0001)
    std::string Name() const;

    /// Whether the driver has a session on it: it was there when last heard of.
    bool IsHere() const { return session_ != nullptr; }
    bool IsAt(const SeenToken& place) const;

    /// Whether one of these certificates is a user's that was on this token.
    bool Knows(const std::vector<FoundCertificate>& certificates) const;

    /// Whether this is `other` through another module, and the other shows all users' certificates of this
    /// one.
    bool IsAlso(const Token& other) const;

    /// The token is away, as calls answer from now on until it is found again.
    void GoneWith(CK_RV answer);

    /// The token was found again: a new visit begins, and the user is logged in again.
    void FoundIn(PluggedToken plugged);

    /// Reads its certificates again. Throws Pkcs11Error, also when the token is gone.
    void ReadAgain();

    /// The same, where it still is, as it was seen there just now.
    void StillAt(const SeenToken& place);

    /// The private keys that show to the user who is logged in: read once in a visit, and again when the
    /// certificates have changed. Throws Pkcs11Error.
    const std::vector<PrivateKey>& ReadKeys();

    /// The driver's session. Throws Pkcs11Error when the token is away.
    ModuleSession& Session();

    /// Counts the driver's sessions on this token: an operation begun in one is not under way in the next.
    unsigned SessionNumber() const { return sessionNumber_; }

    /// A new session in the place of the present one, with what is under way in it. Throws Pkcs11Error.
    void RenewSession();

    /// Runs `call`, which talks to the module in Session() and answers or throws; when the token turns out to
    /// be gone and is back, once more.
    template <class Call>
    CK_RV CallWithReconnect(Call call) {
        if (IsHere()) {
            const CK_RV answer = AnswerOf(call);
            if (!IsGone(answer))
                return answer;
            GoneWith(answer);
        }
        const CK_RV back = Reconnect();
        return back == CKR_OK ? AnswerOf(call) : back;
    }

    /// Whether the user is logged in, or need not be, in this visit.
    bool IsLoggedIn() const;

    /// Whether the user was logged in, and is no more since the token was away.
    bool HasLostLogin() const { return loggedInVisit_ != 0 && loggedInVisit_ != visit_; }

    /// Asks the module for the token's information again; false when it does not tell. Throws Pkcs11Error
    /// when another token answers, or this one is away.
    bool LookAgain();

    /// C_Login with a PIN that the user typed for this token just now; a PIN pad is asked instead. The PIN of
    /// a user's success is kept. Throws Pkcs11Error when the token is away.
    CK_RV Login(CK_USER_TYPE user, std::span<CK_UTF8CHAR> pin);

    /// The login that a key with CKA_ALWAYS_AUTHENTICATE wants between C_SignInit and C_Sign (PKCS#11
    /// section 5.6, C_Login). CKR_USER_NOT_LOGGED_IN when no PIN is known.
    CK_RV LoginForKey();

    void ForgetPin(const std::string& reason);

private:
    CK_RV Reconnect();
    CK_RV LoginAgain();
    bool MayLoginUnasked();
    CK_RV LoginWithKeptPin(CK_USER_TYPE user);

    SeenToken seen_;
    std::unique_ptr<ModuleSession> session_;
    std::vector<FoundCertificate> certificates_;
    std::optional<std::vector<PrivateKey>> keys_; ///< of this visit, once they were read
    FindToken findToken_;
    unsigned visit_ = 1;
    unsigned sessionNumber_ = 1;
    CK_RV goneWith_ = CKR_DEVICE_REMOVED; ///< the module's answer when the token went
    unsigned loggedInVisit_ = 0;          ///< the visit of the last successful login of the user; 0: never
    KeptPin pin_;
};

} // namespace tokendriver
