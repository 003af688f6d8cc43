#include "Token.h"

#include "Pkcs11Error.h"

#include <array>

namespace tokendriver {

namespace {

template <class Known>
bool Agrees(const std::optional<Known>& known, const std::optional<Known>& told) {
    return !known || !told || *known == *told;
}

template <class Known>
void Learn(std::optional<Known>& known, const std::optional<Known>& told) {
    if (told)
        known = told;
}

/// An answer to C_Login that tells that the PIN must not be tried again.
bool RefusesPin(CK_RV answer) {
    return answer == CKR_PIN_INCORRECT || answer == CKR_PIN_LOCKED || answer == CKR_PIN_EXPIRED ||
           answer == CKR_PIN_INVALID || answer == CKR_PIN_LEN_RANGE;
}

} // namespace

void Token::FoundIn(const SeenToken& seen) {
    seen_ = seen;
    ++visit_;
    givenOut_.clear();
}

CK_OBJECT_HANDLE Token::GiveOut(CK_OBJECT_HANDLE inModule, const SearchTemplate& foundBy) {
    CK_OBJECT_HANDLE& handle = givenOut_[inModule];
    GivenObject* known = Object(handle);
    if (known == nullptr || !Agrees(known->objectClass, foundBy.ObjectClass()) ||
        !Agrees(known->id, foundBy.Id())) {
        if (objects_.size() >= kMaxObjectsGivenOut)
            throw Pkcs11Error(CKR_DEVICE_MEMORY);
        objects_.push_back({inModule, visit_, {}, {}, {}});
        handle = objects_.size();
        known = &objects_.back();
    }
    Learn(known->objectClass, foundBy.ObjectClass());
    Learn(known->id, foundBy.Id());
    return handle;
}

GivenObject* Token::Object(CK_OBJECT_HANDLE givenOut) {
    return givenOut == 0 || givenOut > objects_.size() ? nullptr : &objects_[givenOut - 1];
}

CK_OBJECT_HANDLE Token::InModule(GivenObject& object, CK_SESSION_HANDLE session) {
    if (object.visit == visit_)
        return object.inModule;
    if (!object.objectClass || !object.id)
        throw Pkcs11Error(CKR_OBJECT_HANDLE_INVALID);
    std::array attributes = {CK_ATTRIBUTE{CKA_CLASS, &*object.objectClass, sizeof *object.objectClass},
                             CK_ATTRIBUTE{CKA_ID, object.id->data(), object.id->size()}};
    std::array<CK_OBJECT_HANDLE, 2> found{};
    CK_ULONG count = 0;
    Check(Module().C_FindObjectsInit(session, attributes.data(), attributes.size()));
    const CK_RV answer = Module().C_FindObjects(session, found.data(), found.size(), &count);
    Module().C_FindObjectsFinal(session);
    Check(answer);
    if (count != 1)
        throw Pkcs11Error(count == 0 && loggedInVisit_ != 0 && loggedInVisit_ != visit_
                              ? CKR_USER_NOT_LOGGED_IN
                              : CKR_OBJECT_HANDLE_INVALID);
    object.inModule = found[0];
    object.visit = visit_;
    givenOut_.emplace(object.inModule, static_cast<CK_OBJECT_HANDLE>(&object - objects_.data()) + 1);
    return object.inModule;
}

CK_RV Token::Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, std::span<CK_UTF8CHAR> pin) {
    // PKCS#11 section 5.6: where the token has a protected authentication path, the PIN pointer is null.
    if (HasPinPad())
        pin = {};
    const CK_RV answer = Module().C_Login(session, user, pin.data(), pin.size());
    if (answer == CKR_OK && user == CKU_USER) {
        loggedInVisit_ = visit_;
        pin_.Keep(pin);
    }
    return answer;
}

CK_RV Token::LoginAgain(CK_SESSION_HANDLE session) {
    if (loggedInVisit_ == 0 || !MayLoginUnasked())
        return CKR_OK;
    const CK_RV answer = LoginWithKeptPin(session, CKU_USER);
    if (RefusesPin(answer))
        return CKR_OK;
    if (answer != CKR_OK && answer != CKR_USER_ALREADY_LOGGED_IN)
        return answer;
    loggedInVisit_ = visit_;
    return CKR_OK;
}

CK_RV Token::LoginForKey(CK_SESSION_HANDLE session) {
    return MayLoginUnasked() ? LoginWithKeptPin(session, CKU_CONTEXT_SPECIFIC) : CKR_USER_NOT_LOGGED_IN;
}

// The last try is the user's: it is never spent on a PIN that the user did not type just now, nor when it is
// not known whether it is the last.
bool Token::MayLoginUnasked() {
    if (Module().C_GetTokenInfo(seen_.slot, &seen_.tokenInfo) != CKR_OK)
        return false;
    const bool lastTry = (seen_.tokenInfo.flags & (CKF_USER_PIN_FINAL_TRY | CKF_USER_PIN_LOCKED)) != 0;
    return !lastTry && (HasPinPad() || pin_.IsKept());
}

CK_RV Token::LoginWithKeptPin(CK_SESSION_HANDLE session, CK_USER_TYPE user) {
    const std::span<CK_UTF8CHAR> pin = pin_.Text();
    const CK_RV answer = Module().C_Login(session, user, pin.data(), pin.size());
    if (RefusesPin(answer))
        pin_.Forget();
    return answer;
}

} // namespace tokendriver
