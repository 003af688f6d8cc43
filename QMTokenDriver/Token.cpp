#include "Token.h"

#include "Ckr.h"
#include "TokenLog.h"

#include <algorithm>
#include <utility>

namespace tokendriver {

namespace {

constexpr CK_FLAGS kSessionFlags = CKF_SERIAL_SESSION | CKF_RW_SESSION;

std::unique_ptr<ModuleSession> OpenOn(const SeenToken& seen) {
    auto session = std::make_unique<ModuleSession>(*seen.backend->functions, seen.slot, kSessionFlags);
    Check(session->Opened());
    return session;
}

bool HoldsUsers(const std::vector<FoundCertificate>& certificates) {
    return std::any_of(certificates.begin(), certificates.end(),
                       [](const FoundCertificate& one) { return one.certificate->IsUsers(); });
}

bool Holds(const std::vector<FoundCertificate>& certificates, const Certificate& wanted) {
    return std::any_of(certificates.begin(), certificates.end(), [&wanted](const FoundCertificate& one) {
        return one.certificate->Der() == wanted.Der();
    });
}

} // namespace

PluggedToken::PluggedToken(const SeenToken& seenToken)
    : seen(seenToken), session(OpenOn(seen)), certificates(ReadCertificates(*session)) {}

Token::Token(PluggedToken plugged, FindToken findToken)
    : seen_(plugged.seen), session_(std::move(plugged.session)),
      certificates_(std::move(plugged.certificates)), findToken_(std::move(findToken)) {}

std::string Token::Name() const {
    return "\"" + seen_.identity.label + "\" (serial number " + seen_.identity.serialNumber + ")";
}

bool Token::IsAt(const SeenToken& place) const {
    return seen_.backend == place.backend && seen_.slot == place.slot;
}

bool Token::Knows(const std::vector<FoundCertificate>& certificates) const {
    return std::any_of(certificates.begin(), certificates.end(), [this](const FoundCertificate& there) {
        return there.certificate->IsUsers() && Holds(certificates_, *there.certificate);
    });
}

bool Token::IsAlso(const Token& other) const {
    return seen_.backend != other.seen_.backend && !seen_.identity.serialNumber.empty() &&
           seen_.identity == other.seen_.identity && HoldsUsers(certificates_) &&
           std::all_of(certificates_.begin(), certificates_.end(), [&other](const FoundCertificate& one) {
               return !one.certificate->IsUsers() || Holds(other.certificates_, *one.certificate);
           });
}

void Token::GoneWith(CK_RV answer) {
    session_.reset();
    goneWith_ = answer;
}

void Token::FoundIn(PluggedToken plugged) {
    seen_ = plugged.seen;
    certificates_ = std::move(plugged.certificates);
    session_ = std::move(plugged.session);
    keys_.reset();
    ++sessionNumber_;
    ++visit_;
    LoginAgain();
}

void Token::ReadAgain() {
    std::vector<FoundCertificate> now = ReadCertificates(Session(), certificates_);
    if (HoldsUsers(certificates_) && !Knows(now)) // exchanged, and the module has kept the session
        throw Pkcs11Error(CKR_DEVICE_REMOVED);
    const auto isSame = [](const FoundCertificate& one, const FoundCertificate& other) {
        return one.object == other.object && one.certificate == other.certificate;
    };
    if (!std::equal(now.begin(), now.end(), certificates_.begin(), certificates_.end(), isSame))
        keys_.reset();
    certificates_ = std::move(now);
}

void Token::StillAt(const SeenToken& place) {
    seen_ = place;
    ReadAgain();
}

const std::vector<PrivateKey>& Token::ReadKeys() {
    if (!keys_)
        keys_ = ReadPrivateKeys(Session());
    return *keys_;
}

ModuleSession& Token::Session() {
    if (!session_)
        throw Pkcs11Error(goneWith_);
    return *session_;
}

// PKCS#11 2.40 has no call that ends a signature left under way, but a session that is closed takes it along.
// The new one is opened first, where the token has room for it: closing the last one logs the user out.
void Token::RenewSession() {
    auto next = std::make_unique<ModuleSession>(*seen_.backend->functions, seen_.slot, kSessionFlags);
    if (next->Opened() == CKR_OK) {
        session_ = std::move(next);
        ++sessionNumber_;
        return;
    }
    GoneWith(next->Opened());
    Check(Reconnect());
}

CK_RV Token::Reconnect() {
    std::optional<PluggedToken> found = findToken_(*this);
    if (!found)
        return goneWith_;
    FoundIn(std::move(*found));
    return CKR_OK;
}

bool Token::IsLoggedIn() const {
    return (seen_.tokenInfo.flags & CKF_LOGIN_REQUIRED) == 0 || loggedInVisit_ == visit_;
}

bool Token::LookAgain() {
    const CK_RV answer = Session().Module().C_GetTokenInfo(seen_.slot, &seen_.tokenInfo);
    if (IsGone(answer))
        throw Pkcs11Error(answer);
    if (answer != CKR_OK)
        return false;
    if (!(IdentityOf(seen_.tokenInfo) == seen_.identity)) // exchanged, and the module has kept the session
        throw Pkcs11Error(CKR_DEVICE_REMOVED);
    return true;
}

CK_RV Token::Login(CK_USER_TYPE user, std::span<CK_UTF8CHAR> pin) {
    LookAgain();
    ReadAgain(); // alike in name and number is not yet the same
    // PKCS#11 section 5.6: where the token has a protected authentication path, the PIN pointer is null.
    if (HasPinPad())
        pin = {};
    const CK_RV answer = Session().Login(user, pin);
    if (user != CKU_USER || IsGone(answer))
        return answer;
    if (answer == CKR_OK)
        pin_.Keep(pin);
    else if (answer != CKR_USER_ALREADY_LOGGED_IN)
        ForgetPin("the login answers " + DescribeAnswer(answer));
    if (answer == CKR_OK || answer == CKR_USER_ALREADY_LOGGED_IN)
        loggedInVisit_ = visit_;
    return answer;
}

// A refusal leaves the session public, and the token refuses its keys.
CK_RV Token::LoginAgain() {
    if (loggedInVisit_ == 0 || !MayLoginUnasked())
        return CKR_OK;
    const CK_RV answer = LoginWithKeptPin(CKU_USER);
    if (answer == CKR_OK || answer == CKR_USER_ALREADY_LOGGED_IN)
        loggedInVisit_ = visit_;
    return answer;
}

CK_RV Token::LoginForKey() {
    return MayLoginUnasked() ? LoginWithKeptPin(CKU_CONTEXT_SPECIFIC) : CKR_USER_NOT_LOGGED_IN;
}

// The last try is the user's: it is never spent on a PIN that the user did not type just now, nor when it is
// not known whether it is the last.
bool Token::MayLoginUnasked() {
    if (!LookAgain())
        return false;
    const bool lastTry = (seen_.tokenInfo.flags & (CKF_USER_PIN_FINAL_TRY | CKF_USER_PIN_LOCKED)) != 0;
    return !lastTry && (HasPinPad() || pin_.IsKept());
}

// A PIN that was answered with anything but success is never tried again: makers' modules have other codes
// than the standard's for a wrong one. That the token is gone is no answer to the PIN.
CK_RV Token::LoginWithKeptPin(CK_USER_TYPE user) {
    const CK_RV answer = Session().Login(user, pin_.Text());
    if (answer != CKR_OK && answer != CKR_USER_ALREADY_LOGGED_IN && !IsGone(answer))
        ForgetPin("the login answers " + DescribeAnswer(answer));
    return answer;
}

void Token::ForgetPin(const std::string& reason) {
    if (pin_.IsKept())
        WriteTokenLog("the PIN of the token " + Name() + " is forgotten: " + reason);
    pin_.Forget();
}

} // namespace tokendriver
