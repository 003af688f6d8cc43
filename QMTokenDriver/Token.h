#pragma once

#include "Attributes.h"
#include "KeptPin.h"
#include "TokenScan.h"

#include <p11-kit/pkcs11.h>

#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

namespace tokendriver {

/// Objects given out per token; tokens hold a few dozen, soft tokens some thousands.
constexpr std::size_t kMaxObjectsGivenOut = 100'000;

/// An object that the host was given a handle of. What is known of it finds it again after the token was
/// away.
struct GivenObject {
    CK_OBJECT_HANDLE inModule = 0;
    unsigned visit = 0; ///< the token's visit (see Token) in which `inModule` is valid
    std::optional<CK_OBJECT_CLASS> objectClass;
    std::optional<Bytes> id;
    std::optional<bool> alwaysAuthenticate; ///< CKA_ALWAYS_AUTHENTICATE, once it was asked for
};

/// One token, for as long as the driver runs, wherever it is plugged in: the objects given out, whether the
/// user is logged in, and the PIN for logging in again. A "visit" is the time from one finding of the token
/// to the next: the module's object handles hold for one visit, the driver's own for ever.
class Token {
public:
    explicit Token(const SeenToken& seen) : seen_(seen) {}

    const SeenToken& Seen() const { return seen_; }
    CK_FUNCTION_LIST& Module() const { return *seen_.backend->functions; }
    bool HasPinPad() const { return (seen_.tokenInfo.flags & CKF_PROTECTED_AUTHENTICATION_PATH) != 0; }

    /// The token was found (again), perhaps in another slot: a new visit begins.
    void FoundIn(const SeenToken& seen);

    /// The driver's handle (never 0) of an object of this visit. The same object has the same handle, unless
    /// what is known of it says that the module has given its handle to another. Throws Pkcs11Error
    /// CKR_DEVICE_MEMORY over the limit.
    CK_OBJECT_HANDLE GiveOut(CK_OBJECT_HANDLE inModule, const SearchTemplate& foundBy);

    /// The object behind a handle given out; null for others. Valid until the next GiveOut.
    GivenObject* Object(CK_OBJECT_HANDLE givenOut);

    /// The module's handle, valid in this visit; after a new visit the object is looked for in `session` by
    /// class and id. Throws Pkcs11Error CKR_OBJECT_HANDLE_INVALID unless exactly one is found,
    /// CKR_USER_NOT_LOGGED_IN when it may be hidden because the login was not renewed in this visit.
    CK_OBJECT_HANDLE InModule(GivenObject& object, CK_SESSION_HANDLE session);

    /// C_Login on one of the module's sessions as the host asks for it. The PIN of a user's success is kept.
    CK_RV Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, std::span<CK_UTF8CHAR> pin);

    /// Logs in again, if the user was, after the token was away. A PIN that was refused once is not tried
    /// again, and none when the token says that one try is left: then the session stays public (CKR_OK), and
    /// the token refuses its keys.
    CK_RV LoginAgain(CK_SESSION_HANDLE session);

    /// The login that a key with CKA_ALWAYS_AUTHENTICATE wants between C_SignInit and C_Sign (PKCS#11
    /// section 5.6, C_Login). CKR_USER_NOT_LOGGED_IN when no PIN is known.
    CK_RV LoginForKey(CK_SESSION_HANDLE session);

private:
    bool MayLoginUnasked();
    CK_RV LoginWithKeptPin(CK_SESSION_HANDLE session, CK_USER_TYPE user);

    SeenToken seen_;
    unsigned visit_ = 1;
    std::vector<GivenObject> objects_; ///< the handle is the index + 1
    std::unordered_map<CK_OBJECT_HANDLE, CK_OBJECT_HANDLE>
        givenOut_;               ///< of this visit, by the module's handle
    unsigned loggedInVisit_ = 0; ///< the visit of the last successful login of the user; 0: never
    KeptPin pin_;
};

} // namespace tokendriver
