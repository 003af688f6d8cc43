#include "Session.h"

#include "Ckr.h"
#include "CutShort.h"
#include "Mechanisms.h"
#include "Pkcs11Error.h"
#include "TokenLog.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <iterator>

namespace tokendriver {

namespace {

bool IsIn(const std::vector<CK_OBJECT_HANDLE>& objects, CK_OBJECT_HANDLE object) {
    return std::find(objects.begin(), objects.end(), object) != objects.end();
}

/// The module's handle of a listed certificate in the token's present visit; 0 when it is not there any more.
CK_OBJECT_HANDLE ObjectOf(const ListedCertificate& listed) {
    const std::vector<FoundCertificate>& there = listed.token->Certificates();
    const auto found = std::find_if(there.begin(), there.end(), [&listed](const FoundCertificate& one) {
        return *one.certificate == *listed.certificate;
    });
    return found == there.end() ? 0 : found->object;
}

} // namespace

CK_RV Session::Login(CK_USER_TYPE user, std::span<CK_UTF8CHAR> pin) {
    if (!catalogue_.IsRead())
        catalogue_.Read();
    return logins_.Login(catalogue_.Tokens(), user, pin);
}

CK_RV Session::GetAttributeValue(CK_OBJECT_HANDLE handle, CK_ATTRIBUTE* wanted, CK_ULONG count) {
    GivenObject* object = objects_.Object(handle);
    if (object == nullptr)
        return CKR_OBJECT_HANDLE_INVALID;
    if (count > kMaxTemplateAttributes || (wanted == nullptr && count > 0))
        return CKR_ARGUMENTS_BAD;
    if (IsJustFound(*object, {wanted, count}))
        return AnswerFromReading(*object, {wanted, count});
    return object->token->CallWithReconnect([&] {
        const ModuleSession& session = object->token->Session();
        const CK_OBJECT_HANDLE inModule = objects_.HandleFor(*object);
        return ReadAttributes(session.Module(), session.Handle(), inModule, wanted, count, object->id);
    });
}

/// Whether this is the certificate that the search under way has handed out last, and what is asked of it was
/// read for the list: then no module need be asked again.
bool Session::IsJustFound(const GivenObject& object, std::span<const CK_ATTRIBUTE> wanted) const {
    return search_ && search_->given > 0 && search_->found[search_->given - 1] == object.handle &&
           object.objectClass == CKO_CERTIFICATE && object.certificate && object.id.text &&
           std::all_of(wanted.begin(), wanted.end(),
                       [](const CK_ATTRIBUTE& one) { return one.type == CKA_VALUE || one.type == CKA_ID; });
}

CK_RV Session::AnswerFromReading(const GivenObject& object, std::span<CK_ATTRIBUTE> wanted) {
    CK_RV answer = CKR_OK;
    for (CK_ATTRIBUTE& one : wanted) {
        const bool isId = one.type == CKA_ID;
        if (AnswerAttribute(one, isId ? BytesOf(*object.id.text) : object.certificate->Der()) != CKR_OK)
            answer = CKR_BUFFER_TOO_SMALL;
    }
    return answer;
}

CK_RV Session::FindObjectsInit(const SearchTemplate& wanted) {
    search_.reset();
    if (wanted.IsForAllCertificates() || !catalogue_.IsRead())
        catalogue_.Read();
    const ListedCertificate* named = wanted.IdText() ? catalogue_.Find(*wanted.IdText()) : nullptr;
    if (wanted.ObjectClass() == CKO_CERTIFICATE)
        search_ = Search{FindCertificates(wanted, named)};
    else if (wanted.ObjectClass() == CKO_PRIVATE_KEY && wanted.IdText())
        search_ = Search{FindKeys(wanted, named)};
    else
        search_ = Search{FindAll(named == nullptr ? wanted : wanted.WithId(named->certificate->Id()))};
    return CKR_OK;
}

/// In the order of the list, and no others.
std::vector<CK_OBJECT_HANDLE> Session::FindCertificates(const SearchTemplate& wanted,
                                                        const ListedCertificate* named) {
    std::vector<CK_OBJECT_HANDLE> matching;
    if (!wanted.IsForAllCertificates())
        matching = FindAll(named == nullptr ? wanted : wanted.WithId(named->certificate->Id()));
    std::vector<CK_OBJECT_HANDLE> found;
    for (const ListedCertificate& listed : catalogue_.Certificates()) {
        const CK_OBJECT_HANDLE inModule = wanted.IsForAllCertificates() ? listed.object : ObjectOf(listed);
        if (inModule == 0 || (named != nullptr && named != &listed))
            continue;
        const CK_OBJECT_HANDLE object = GiveOut(listed, inModule, CKO_CERTIFICATE);
        if (wanted.IsForAllCertificates() || IsIn(matching, object))
            found.push_back(object);
    }
    return found;
}

/// A key without a certificate is none: what it signs could not be verified. Where the login is refused, the
/// key is handed out unseen: why a search fails the host does not tell, why a signature fails it does.
std::vector<CK_OBJECT_HANDLE> Session::FindKeys(const SearchTemplate& wanted,
                                                const ListedCertificate* named) {
    if (named == nullptr) {
        logins_.ForgetUnbound();
        return {};
    }
    const ListedCertificate listed = *named;
    Token& token = *listed.token;
    SearchTemplate inside = wanted.WithId(listed.certificate->Id());
    std::vector<CK_OBJECT_HANDLE> keys;
    const CK_RV answer = logins_.CallLoggedIn(token, catalogue_.Tokens().size() > 1, [&]() -> CK_RV {
        std::vector<CK_ATTRIBUTE> attributes = inside.Attributes();
        const ModuleSession& session = token.Session();
        keys = KeysFor(listed.certificate.get(), session.Find(attributes), session);
        return keys.empty() && token.HasLostLogin() ? CKR_USER_NOT_LOGGED_IN : CKR_OK;
    });
    if (answer != CKR_OK && !IsGone(answer) && !token.IsLoggedIn()) {
        WriteTokenLog("nobody is logged in on the token " + token.Name() + ": the login answers " +
                      DescribeAnswer(answer));
        return {GiveOutUnseen(listed)};
    }
    Check(answer);
    for (CK_OBJECT_HANDLE& key : keys)
        key = GiveOut(listed, key, CKO_PRIVATE_KEY);
    return keys;
}

CK_OBJECT_HANDLE Session::GiveOut(const ListedCertificate& listed, CK_OBJECT_HANDLE inModule,
                                  CK_OBJECT_CLASS objectClass) {
    const CK_OBJECT_HANDLE handle =
        objects_.GiveOut(*listed.token, inModule, objectClass, listed.certificate->Id());
    GivenObject& object = *objects_.Object(handle);
    object.certificate = listed.certificate;
    object.id.text = listed.idText;
    return handle;
}

CK_OBJECT_HANDLE Session::GiveOutUnseen(const ListedCertificate& listed) {
    const CK_OBJECT_HANDLE handle = GiveOut(listed, 0, CKO_PRIVATE_KEY);
    objects_.Object(handle)->visit = 0; // of no visit: it is looked for when it is used
    return handle;
}

/// What the modules find, token after token. Of several tokens, one that fails is passed over, unless all do.
std::vector<CK_OBJECT_HANDLE> Session::FindAll(SearchTemplate wanted) {
    std::vector<CK_OBJECT_HANDLE> all;
    if (wanted.MatchesNothing())
        return all;
    CK_RV failure = CKR_DEVICE_REMOVED;
    bool hasAnswer = false;
    for (Token* token : catalogue_.Tokens()) {
        std::vector<CK_OBJECT_HANDLE> found;
        const CK_RV answer = token->CallWithReconnect([&] {
            std::vector<CK_ATTRIBUTE> attributes = wanted.Attributes();
            found = token->Session().Find(attributes);
            return CKR_OK;
        });
        hasAnswer = hasAnswer || answer == CKR_OK;
        if (answer != CKR_OK)
            failure = answer;
        for (const CK_OBJECT_HANDLE object : found)
            all.push_back(objects_.GiveOut(*token, object, wanted.ObjectClass(), wanted.Id()));
    }
    if (!hasAnswer)
        throw Pkcs11Error(failure);
    return all;
}

CK_RV Session::FindObjects(std::span<CK_OBJECT_HANDLE> found, CK_ULONG& count) {
    if (!search_)
        return CKR_OPERATION_NOT_INITIALIZED;
    count = std::min(found.size(), search_->found.size() - search_->given);
    const auto next = search_->found.begin() + static_cast<std::ptrdiff_t>(search_->given);
    std::copy_n(next, count, found.begin());
    search_->given += count;
    return CKR_OK;
}

CK_RV Session::FindObjectsFinal() {
    if (!search_)
        return CKR_OPERATION_NOT_INITIALIZED;
    search_.reset();
    return CKR_OK;
}

CK_RV Session::SignInit(const CK_MECHANISM& mechanism, CK_OBJECT_HANDLE key) {
    if (signing_)
        return CKR_OPERATION_ACTIVE;
    if (!IsKnown(mechanism.mechanism))
        return CKR_MECHANISM_INVALID;
    if (mechanism.pParameter != nullptr || mechanism.ulParameterLen > 0) // none of them has any
        return CKR_MECHANISM_PARAM_INVALID;
    GivenObject* object = objects_.Object(key);
    if (object == nullptr || !object->certificate)
        return CKR_KEY_HANDLE_INVALID;
    const bool hashedHere =
        IsHashAndSign(mechanism.mechanism) && !object->token->Seen().mechanisms.Has(mechanism.mechanism);
    signing_ = Signing{mechanism.mechanism, object, hashedHere};
    const CK_RV answer = object->token->CallWithReconnect([this] { return BeginSigning(); });
    if (answer != CKR_OK)
        signing_.reset();
    return answer == CKR_OBJECT_HANDLE_INVALID ? CKR_KEY_HANDLE_INVALID : answer;
}

/// Begins the signature in the token's present session.
CK_RV Session::BeginSigning() {
    Token& token = *signing_->key->token;
    CK_RV answer = ModuleSignInit();
    if (answer == CKR_OPERATION_ACTIVE) { // one that was refused here, or that failed half-way
        token.RenewSession();
        answer = ModuleSignInit();
    }
    if (answer == CKR_MECHANISM_INVALID && IsHashAndSign(signing_->mechanism) && !signing_->hashedHere) {
        signing_->hashedHere = true; // the token lists a mechanism that it does not do
        answer = ModuleSignInit();
    }
    if (answer != CKR_OK)
        return answer;
    signing_->begunIn = token.SessionNumber();
    return AuthenticateForKey();
}

CK_RV Session::ModuleSignInit() {
    CK_MECHANISM mechanism{signing_->hashedHere ? CKM_RSA_PKCS : signing_->mechanism, nullptr, 0};
    const ModuleSession& session = signing_->key->token->Session();
    return session.Module().C_SignInit(session.Handle(), &mechanism, objects_.HandleFor(*signing_->key));
}

CK_RV Session::AuthenticateForKey() {
    GivenObject& key = *signing_->key;
    if (!key.alwaysAuthenticate) {
        const ModuleSession& session = key.token->Session();
        const std::optional<Bytes> value =
            session.Values(objects_.HandleFor(key), {CKA_ALWAYS_AUTHENTICATE})[0];
        key.alwaysAuthenticate = value && value->size() == sizeof(CK_BBOOL) && value->front() != CK_FALSE;
    }
    return *key.alwaysAuthenticate ? key.token->LoginForKey() : CKR_OK;
}

/// Has the module sign, after the signature was begun anew where the token was away. By PKCS#11 section 5.2
/// the question for the length, and its answer CKR_BUFFER_TOO_SMALL, leave the signature under way; all else
/// ends it.
CK_RV Session::Sign(std::span<CK_BYTE> data, CK_BYTE* signature, CK_ULONG& length) {
    if (!signing_)
        return CKR_OPERATION_NOT_INITIALIZED;
    if (IsCutShort(signing_->mechanism, data)) {
        signing_.reset();
        return CKR_DATA_INVALID;
    }
    const CK_ULONG capacity = length;
    Token& token = *signing_->key->token;
    CK_RV answer = token.CallWithReconnect([&]() -> CK_RV {
        if (signing_->begunIn != token.SessionNumber())
            Check(BeginSigning());
        Bytes block;
        if (signing_->hashedHere)
            block = SignedBlock(signing_->mechanism, data);
        const std::span<CK_BYTE> signedBytes = signing_->hashedHere ? block : data;
        const ModuleSession& session = token.Session();
        length = capacity;
        Check(session.Module().C_Sign(session.Handle(), signedBytes.data(), signedBytes.size(), signature,
                                      &length));
        return signature != nullptr && length > capacity ? CKR_DEVICE_ERROR : CKR_OK;
    });
    if (answer == CKR_OK && signature != nullptr)
        answer = Verify(data, {signature, capacity}, length);
    if (answer != CKR_BUFFER_TOO_SMALL && (answer != CKR_OK || signature != nullptr))
        signing_.reset();
    return answer;
}

/// A signature that the certificate's key does not verify never leaves the driver.
CK_RV Session::Verify(std::span<const CK_BYTE> data, std::span<CK_BYTE> buffer, CK_ULONG length) const {
    const GivenObject& key = *signing_->key;
    if (key.certificate->Verifies(SignedBlock(signing_->mechanism, data), buffer.first(length)))
        return CKR_OK;
    OPENSSL_cleanse(buffer.data(), buffer.size());
    WriteTokenLog("a signature of the module " + key.token->Seen().backend->name + " with the token " +
                  key.token->Name() + " does not verify with its certificate, id " +
                  key.id.text.value_or("") + ", and was thrown away");
    return CKR_DEVICE_ERROR;
}

// There is no C_SignUpdate here, so it is the signature of nothing.
CK_RV Session::SignFinal(CK_BYTE* signature, CK_ULONG& length) { return Sign({}, signature, length); }

} // namespace tokendriver
