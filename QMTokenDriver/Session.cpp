#include "Session.h"

#include "CutShort.h"
#include "DigestInfo.h"
#include "Pkcs11Error.h"

#include <algorithm>
#include <array>
#include <utility>

namespace tokendriver {

namespace {

/// Objects fetched from the module in one call; fewer than asked for is an answer like any other.
constexpr std::size_t kObjectsPerCall = 256;

/// Parameters of mechanisms are a few numbers.
constexpr CK_ULONG kMaxParameterBytes = 4096;

/// The module's ways to say that the token, or the session on it, is no more.
bool IsGone(CK_RV answer) {
    return answer == CKR_SESSION_HANDLE_INVALID || answer == CKR_SESSION_CLOSED ||
           answer == CKR_DEVICE_REMOVED || answer == CKR_TOKEN_NOT_PRESENT ||
           answer == CKR_TOKEN_NOT_RECOGNIZED;
}

template <class Call>
CK_RV AnswerOf(Call& call) {
    try {
        return call();
    } catch (const Pkcs11Error& error) {
        return error.Code();
    }
}

} // namespace

Session::Session(Token& token, CK_FLAGS flags, FindToken findToken)
    : token_(token), flags_(flags), findToken_(std::move(findToken)) {
    Check(Open());
}

Session::~Session() {
    if (goneWith_ == CKR_OK)
        Module().C_CloseSession(inModule_);
}

CK_RV Session::Open() {
    const CK_SLOT_ID slot = token_.Seen().slot;
    CK_RV answer = Module().C_OpenSession(slot, flags_, nullptr, nullptr, &inModule_);
    if (answer == CKR_TOKEN_WRITE_PROTECTED)
        answer = Module().C_OpenSession(slot, flags_ & ~CKF_RW_SESSION, nullptr, nullptr, &inModule_);
    if (answer == CKR_OK)
        ++number_;
    return answer;
}

template <class Call>
CK_RV Session::Carry(Call call) {
    if (goneWith_ == CKR_OK) {
        const CK_RV answer = AnswerOf(call);
        if (!IsGone(answer))
            return answer;
        Module().C_CloseSession(
            inModule_); // p11-kit keeps count of sessions, also of those that the module has lost
        goneWith_ = answer;
    }
    const CK_RV back = Reconnect();
    return back == CKR_OK ? AnswerOf(call) : back;
}

CK_RV Session::Reconnect() {
    const std::optional<SeenToken> seen = findToken_(token_.Seen());
    if (!seen)
        return goneWith_;
    token_.FoundIn(*seen);
    CK_RV answer = Open();
    if (answer != CKR_OK)
        return answer;
    answer = token_.LoginAgain(inModule_);
    if (answer == CKR_OK)
        goneWith_ = CKR_OK;
    else
        Module().C_CloseSession(inModule_);
    return answer;
}

// PKCS#11 2.40 has no call that ends a signature left under way, but a session that is closed takes it along.
// The new one is opened first, where the token has room for it: closing the last one logs the user out.
CK_RV Session::Renew() {
    const CK_SESSION_HANDLE old = inModule_;
    search_.reset();
    CK_RV answer = Open();
    Module().C_CloseSession(old);
    if (answer == CKR_OK)
        return answer;
    answer = Open();
    return answer == CKR_OK ? token_.LoginAgain(inModule_) : answer;
}

CK_RV Session::Login(CK_USER_TYPE user, std::span<CK_UTF8CHAR> pin) {
    return Carry([&] { return token_.Login(inModule_, user, pin); });
}

CK_RV Session::GetAttributeValue(CK_OBJECT_HANDLE object, CK_ATTRIBUTE* wanted, CK_ULONG count) {
    GivenObject* given = token_.Object(object);
    if (given == nullptr)
        return CKR_OBJECT_HANDLE_INVALID;
    return Carry([&] {
        const CK_OBJECT_HANDLE inModule = token_.InModule(*given, inModule_);
        return ReadAttributes(Module(), inModule_, inModule, wanted, count, given->id);
    });
}

CK_RV Session::FindObjectsInit(SearchTemplate wanted) {
    if (search_)
        FindObjectsFinal();
    search_ = Search{std::move(wanted)};
    const CK_RV answer = Carry([this] { return ContinueSearch(); });
    if (answer != CKR_OK)
        search_.reset();
    return answer;
}

/// Begins the search in the module's present session, if it is not under way there, behind what the host has
/// of it.
CK_RV Session::ContinueSearch() {
    if (search_->begunIn == number_ || search_->wanted.MatchesNothing())
        return CKR_OK;
    std::vector<CK_ATTRIBUTE> attributes = search_->wanted.Attributes();
    CK_RV answer = Module().C_FindObjectsInit(inModule_, attributes.data(), attributes.size());
    if (answer != CKR_OK)
        return answer;
    search_->begunIn = number_;
    CK_ULONG count = 1;
    for (std::size_t skipped = 0; answer == CKR_OK && count == 1 && skipped < search_->given; ++skipped) {
        CK_OBJECT_HANDLE object = 0;
        answer = Module().C_FindObjects(inModule_, &object, 1, &count);
    }
    if (answer != CKR_OK) { // not where the host is, so to be begun anew
        Module().C_FindObjectsFinal(inModule_);
        search_->begunIn = 0;
    }
    return answer;
}

CK_RV Session::FindObjects(std::span<CK_OBJECT_HANDLE> found, CK_ULONG& count) {
    if (!search_)
        return CKR_OPERATION_NOT_INITIALIZED;
    count = 0;
    if (search_->wanted.MatchesNothing())
        return CKR_OK;
    found = found.first(std::min(found.size(), kObjectsPerCall));
    return Carry([&] {
        Check(ContinueSearch());
        Check(Module().C_FindObjects(inModule_, found.data(), found.size(), &count));
        if (count > found.size()) {
            count = 0;
            throw Pkcs11Error(CKR_DEVICE_ERROR);
        }
        for (CK_OBJECT_HANDLE& object : found.first(count))
            object = token_.GiveOut(object, search_->wanted);
        search_->given += count;
        return CKR_OK;
    });
}

CK_RV Session::FindObjectsFinal() {
    if (!search_)
        return CKR_OPERATION_NOT_INITIALIZED;
    const bool isInModule = goneWith_ == CKR_OK && search_->begunIn == number_;
    search_.reset();
    const CK_RV answer = isInModule ? Module().C_FindObjectsFinal(inModule_) : CKR_OK;
    return IsGone(answer) ? CKR_OK : answer;
}

CK_RV Session::SignInit(const CK_MECHANISM& mechanism, CK_OBJECT_HANDLE key) {
    if (signing_)
        return CKR_OPERATION_ACTIVE;
    if (mechanism.ulParameterLen > kMaxParameterBytes ||
        (mechanism.pParameter == nullptr && mechanism.ulParameterLen > 0))
        return CKR_MECHANISM_PARAM_INVALID;
    if (token_.Object(key) == nullptr)
        return CKR_KEY_HANDLE_INVALID;
    const auto* parameter = static_cast<const CK_BYTE*>(mechanism.pParameter);
    const bool hashedHere =
        IsHashAndSign(mechanism.mechanism) && !token_.Seen().mechanisms.Has(mechanism.mechanism);
    signing_ =
        Signing{mechanism.mechanism, Bytes(parameter, parameter + mechanism.ulParameterLen), key, hashedHere};
    const CK_RV answer = Carry([this] { return BeginSigning(); });
    if (answer != CKR_OK)
        signing_.reset();
    return answer == CKR_OBJECT_HANDLE_INVALID ? CKR_KEY_HANDLE_INVALID : answer;
}

/// Begins the signature in the module's present session.
CK_RV Session::BeginSigning() {
    const CK_OBJECT_HANDLE key = token_.InModule(*token_.Object(signing_->key), inModule_);
    CK_RV answer = ModuleSignInit(key);
    if (answer == CKR_OPERATION_ACTIVE) { // one that was refused here, or that failed half-way
        Check(Renew());
        answer = ModuleSignInit(key);
    }
    if (answer == CKR_MECHANISM_INVALID && IsHashAndSign(signing_->mechanism) && !signing_->hashedHere) {
        signing_->hashedHere = true; // the token lists a mechanism that it does not do
        answer = ModuleSignInit(key);
    }
    if (answer != CKR_OK)
        return answer;
    signing_->begunIn = number_;
    return AuthenticateFor(key);
}

CK_RV Session::ModuleSignInit(CK_OBJECT_HANDLE key) {
    CK_MECHANISM mechanism{signing_->mechanism, nullptr, 0};
    if (signing_->hashedHere)
        mechanism.mechanism = CKM_RSA_PKCS;
    else if (!signing_->parameter.empty())
        mechanism = {signing_->mechanism, signing_->parameter.data(), signing_->parameter.size()};
    return Module().C_SignInit(inModule_, &mechanism, key);
}

CK_RV Session::AuthenticateFor(CK_OBJECT_HANDLE key) {
    std::optional<bool>& wanted = token_.Object(signing_->key)->alwaysAuthenticate;
    if (!wanted) {
        CK_BBOOL value = CK_FALSE;
        CK_ATTRIBUTE attribute{CKA_ALWAYS_AUTHENTICATE, &value, sizeof value};
        const CK_RV answer = Module().C_GetAttributeValue(inModule_, key, &attribute, 1);
        if (IsGone(answer))
            return answer;
        wanted = answer == CKR_OK && attribute.ulValueLen == sizeof value && value != CK_FALSE;
    }
    return *wanted ? token_.LoginForKey(inModule_) : CKR_OK;
}

/// Has the module sign by `call`, after the signature was begun anew where the token was away. By PKCS#11
/// section 5.2 the question for the length, and its answer CKR_BUFFER_TOO_SMALL, leave the signature under
/// way; all else ends it.
template <class Call>
CK_RV Session::FinishSigning(CK_BYTE* signature, CK_ULONG& length, Call call) {
    const CK_ULONG capacity = length;
    const CK_RV answer = Carry([&] {
        if (signing_->begunIn != number_)
            Check(BeginSigning());
        length = capacity;
        Check(call());
        return signature != nullptr && length > capacity ? CKR_DEVICE_ERROR : CKR_OK;
    });
    if (answer != CKR_BUFFER_TOO_SMALL && (answer != CKR_OK || signature != nullptr))
        signing_.reset();
    return answer;
}

CK_RV Session::Sign(std::span<CK_BYTE> data, CK_BYTE* signature, CK_ULONG& length) {
    if (!signing_)
        return CKR_OPERATION_NOT_INITIALIZED;
    if (IsCutShort(signing_->mechanism, data)) {
        signing_.reset();
        return CKR_DATA_INVALID;
    }
    return FinishSigning(signature, length, [&] {
        Bytes digestInfo;
        if (signing_->hashedHere)
            digestInfo = DigestInfoOf(signing_->mechanism, data);
        const std::span<CK_BYTE> signedBytes = signing_->hashedHere ? digestInfo : data;
        return Module().C_Sign(inModule_, signedBytes.data(), signedBytes.size(), signature, &length);
    });
}

CK_RV Session::SignFinal(CK_BYTE* signature, CK_ULONG& length) {
    if (!signing_)
        return CKR_OPERATION_NOT_INITIALIZED;
    if (signing_->hashedHere) // there is no C_SignUpdate here, so it is the signature of nothing
        return Sign({}, signature, length);
    return FinishSigning(signature, length,
                         [&] { return Module().C_SignFinal(inModule_, signature, &length); });
}

} // namespace tokendriver
