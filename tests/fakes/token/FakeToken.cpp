#include "FakeToken.h"

#include "support/Certificates.h"

#include <openssl/rsa.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace {

FakeToken::Bytes Number(CK_ULONG value) {
    FakeToken::Bytes bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

const EVP_MD* HashOf(CK_MECHANISM_TYPE mechanism) {
    if (mechanism == CKM_SHA256_RSA_PKCS)
        return EVP_sha256();
    return mechanism == CKM_SHA384_RSA_PKCS ? EVP_sha384() : EVP_sha512();
}

/// PKCS#1 v1.5 over the bytes as they are for CKM_RSA_PKCS, over their hash for the other mechanisms. Empty
/// on failure.
FakeToken::Bytes RsaSign(EVP_PKEY* key, CK_MECHANISM_TYPE mechanism, std::span<const CK_BYTE> data) {
    FakeToken::Bytes signature(static_cast<std::size_t>(EVP_PKEY_get_size(key)));
    std::size_t length = signature.size();
    bool isDone = false;
    if (mechanism == CKM_RSA_PKCS) {
        const Owned<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new(key, nullptr));
        isDone = EVP_PKEY_sign_init(context.get()) == 1 &&
                 EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) == 1 &&
                 EVP_PKEY_sign(context.get(), signature.data(), &length, data.data(), data.size()) == 1;
    } else {
        const Owned<EVP_MD_CTX> context(EVP_MD_CTX_new());
        isDone = EVP_DigestSignInit(context.get(), nullptr, HashOf(mechanism), nullptr, key) == 1 &&
                 EVP_DigestSign(context.get(), signature.data(), &length, data.data(), data.size()) == 1;
    }
    return isDone ? signature : FakeToken::Bytes{};
}

template <std::size_t Size>
void Pad(CK_UTF8CHAR (&field)[Size], const std::string& text) {
    std::fill(std::begin(field), std::end(field), ' ');
    std::copy_n(text.begin(), std::min(text.size(), Size), field);
}

} // namespace

CK_RV FakeToken::Initialize() {
    return std::exchange(initialised, true) ? CKR_CRYPTOKI_ALREADY_INITIALIZED : CKR_OK;
}

CK_RV FakeToken::Finalize() {
    initialised = loggedIn = false;
    sessions_.clear();
    return CKR_OK;
}

bool FakeToken::IsSlot(CK_SLOT_ID slot) {
    const std::vector<CK_SLOT_ID> slots = Slots();
    return std::find(slots.begin(), slots.end(), slot) != slots.end();
}

CK_RV FakeToken::GetTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO& info) {
    if (!IsSlot(slot))
        return CKR_TOKEN_NOT_PRESENT;
    info = {};
    Pad(info.label, label);
    Pad(info.manufacturerID, "Quillmark tests");
    Pad(info.model, "Fake");
    Pad(info.serialNumber, serialNumber);
    info.flags = TokenFlags() | moreTokenFlags;
    return CKR_OK;
}

CK_RV FakeToken::OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, CK_SESSION_HANDLE& session) {
    openedSlot = slot;
    if (!IsSlot(slot))
        return present ? CKR_SLOT_ID_INVALID : CKR_TOKEN_NOT_PRESENT;
    if ((flags & CKF_SERIAL_SESSION) == 0)
        return CKR_SESSION_PARALLEL_NOT_SUPPORTED;
    session = ++lastSession_;
    sessions_[session] = {pulls};
    return CKR_OK;
}

CK_RV FakeToken::CloseSession(CK_SESSION_HANDLE session) {
    sessions_.erase(session);
    loggedIn = loggedIn && !sessions_.empty();
    return CKR_OK;
}

CK_RV FakeToken::InSession(CK_SESSION_HANDLE session, const std::function<CK_RV(Session&)>& work) {
    const auto found = sessions_.find(session);
    if (found == sessions_.end())
        return CKR_SESSION_HANDLE_INVALID;
    return found->second.pulls == pulls ? work(found->second) : goneAnswer;
}

CK_RV FakeToken::Login(Session& session, CK_USER_TYPE user, std::string_view typed) {
    const bool isForKey = user == CKU_CONTEXT_SPECIFIC;
    ++(isForKey ? keyLogins : logins);
    (exchanged ? pinsTriedAtTheOther : pinsTried).emplace_back(typed);
    if (loginAnswer != CKR_OK)
        return loginAnswer;
    if (!isForKey && user != CKU_USER)
        return CKR_USER_TYPE_INVALID;
    if (isForKey && !session.signing)
        return CKR_OPERATION_NOT_INITIALIZED;
    if (!isForKey && loggedIn)
        return CKR_USER_ALREADY_LOGGED_IN;
    if (wrongPins_ >= pinTries)
        return CKR_PIN_LOCKED;
    if (!IsPin(typed)) {
        ++wrongPins_;
        return CKR_PIN_INCORRECT;
    }
    wrongPins_ = 0;
    (isForKey ? session.signing->authenticated : loggedIn) = true;
    return CKR_OK;
}

bool FakeToken::Matches(const Object& object, const CK_ATTRIBUTE& wanted) const {
    const auto known = object.attributes.find(wanted.type);
    if (known == object.attributes.end())
        return false;
    const auto* value = static_cast<const CK_BYTE*>(wanted.pValue);
    Bytes asked(value, value + wanted.ulValueLen);
    if (!strict && wanted.type == CKA_ID && asked.size() == known->second.size() + 1 && asked.back() == 0)
        asked.pop_back();
    if (!strict && wanted.type != CKA_ID && wanted.type != CKA_TOKEN)
        asked.resize(sizeof(CK_ULONG));
    return asked == known->second;
}

CK_RV FakeToken::FindObjectsInit(Session& session, std::span<const CK_ATTRIBUTE> wanted) {
    if (session.search)
        return CKR_OPERATION_ACTIVE;
    session.search.emplace();
    for (std::size_t i = 0; i < Objects().size(); ++i) {
        const Object& object = Objects()[i];
        const bool isVisible = loggedIn || object.attributes.at(CKA_PRIVATE) == Bytes{CK_FALSE};
        if (isVisible && std::all_of(wanted.begin(), wanted.end(), [&](const CK_ATTRIBUTE& attribute) {
                return Matches(object, attribute);
            }))
            session.search->push_back(FirstObject() + i);
    }
    return CKR_OK;
}

CK_RV FakeToken::FindObjects(Session& session, std::span<CK_OBJECT_HANDLE> found, CK_ULONG& count) {
    if (!session.search)
        return CKR_OPERATION_NOT_INITIALIZED;
    for (count = 0; count < found.size() && !session.search->empty(); session.search->pop_front())
        found[count++] = session.search->front();
    return CKR_OK;
}

CK_RV FakeToken::FindObjectsFinal(Session& session) {
    return std::exchange(session.search, std::nullopt) ? CKR_OK : CKR_OPERATION_NOT_INITIALIZED;
}

CK_RV FakeToken::GetAttributeValue(Session&, CK_OBJECT_HANDLE handle, std::span<CK_ATTRIBUTE> wanted) {
    const Object* object = FindObject(handle);
    if (object == nullptr)
        return CKR_OBJECT_HANDLE_INVALID;
    CK_RV answer = CKR_OK;
    for (CK_ATTRIBUTE& attribute : wanted) {
        const auto known = object->attributes.find(attribute.type);
        const CK_ULONG capacity = std::exchange(attribute.ulValueLen, CK_UNAVAILABLE_INFORMATION);
        if (known == object->attributes.end())
            answer = CKR_ATTRIBUTE_TYPE_INVALID;
        else if (attribute.pValue != nullptr && capacity < known->second.size())
            answer = CKR_BUFFER_TOO_SMALL;
        else {
            attribute.ulValueLen = known->second.size();
            if (attribute.pValue != nullptr)
                std::copy(known->second.begin(), known->second.end(),
                          static_cast<CK_BYTE*>(attribute.pValue));
        }
    }
    return answer;
}

CK_RV FakeToken::SignInit(Session& session, CK_MECHANISM_TYPE mechanism, CK_OBJECT_HANDLE key) {
    if (!loggedIn)
        return CKR_USER_NOT_LOGGED_IN;
    if (session.signing)
        return CKR_OPERATION_ACTIVE;
    const Object* object = FindObject(key);
    if (object == nullptr || object->key == nullptr)
        return CKR_KEY_HANDLE_INVALID;
    const std::vector<CK_MECHANISM_TYPE> mechanisms = Mechanisms();
    if (std::find(mechanisms.begin(), mechanisms.end(), mechanism) == mechanisms.end())
        return CKR_MECHANISM_INVALID;
    const bool authenticated = object->attributes.at(CKA_ALWAYS_AUTHENTICATE) == Bytes{CK_FALSE};
    session.signing = {mechanism, object->key, authenticated};
    return CKR_OK;
}

CK_RV FakeToken::Sign(Session& session, std::span<const CK_BYTE> data, CK_BYTE* signature, CK_ULONG& length) {
    if (!session.signing)
        return CKR_OPERATION_NOT_INITIALIZED;
    const CK_ULONG capacity =
        std::exchange(length, static_cast<CK_ULONG>(EVP_PKEY_get_size(session.signing->key)));
    if (signature == nullptr)
        return CKR_OK;
    if (capacity < length)
        return CKR_BUFFER_TOO_SMALL;
    const Signing begun = *std::exchange(session.signing, std::nullopt);
    if (!begun.authenticated)
        return CKR_USER_NOT_LOGGED_IN;
    const Bytes made = RsaSign(begun.key, begun.mechanism, data);
    std::copy(made.begin(), made.end(), signature);
    return made.empty() ? CKR_DATA_LEN_RANGE : CKR_OK;
}

FakeToken::Object* FakeToken::FindObject(CK_OBJECT_HANDLE handle) {
    const bool isKnown = handle >= FirstObject() && handle - FirstObject() < Objects().size();
    return isKnown ? &Objects()[handle - FirstObject()] : nullptr;
}

std::vector<FakeToken::Object>& FakeToken::Objects() {
    if (exchanged && !othersObjects_)
        othersObjects_ = {Certificate({0xab, 0xcd, 0x01}, {.name = "Somebody else"}),
                          PrivateKey({0xab, 0xcd, 0x01})};
    if (!objects_)
        objects_ = MakeObjects();
    return exchanged ? *othersObjects_ : *objects_;
}

FakeToken::Object FakeToken::CertificateOf(const Bytes& id, const Bytes& der) {
    return {{{CKA_CLASS, Number(CKO_CERTIFICATE)},
             {CKA_CERTIFICATE_TYPE, Number(CKC_X_509)},
             {CKA_TOKEN, {CK_TRUE}},
             {CKA_PRIVATE, {CK_FALSE}},
             {CKA_ID, id},
             {CKA_LABEL, Text("certificate")},
             {CKA_VALUE, der}}};
}

FakeToken::Object FakeToken::PrivateKey(const Bytes& id, EVP_PKEY* key) {
    return {{{CKA_CLASS, Number(CKO_PRIVATE_KEY)},
             {CKA_KEY_TYPE, Number(CKK_RSA)},
             {CKA_TOKEN, {CK_TRUE}},
             {CKA_PRIVATE, {CK_TRUE}},
             {CKA_ID, id},
             {CKA_SIGN, {CK_TRUE}},
             {CKA_ALWAYS_AUTHENTICATE, {CK_FALSE}}},
            key};
}

FakeToken::Object FakeToken::PrivateKey(const Bytes& id) { return PrivateKey(id, KeyOf(KeyKind::Rsa)); }

FakeToken::Object FakeToken::Certificate(const Bytes& id, const Contents& contents) {
    CertificateOrder order{.subject = {{"CN", contents.name}},
                           .notBefore = FromNow(contents.notBefore),
                           .notAfter = FromNow(contents.notAfter),
                           .key = contents.isRsa ? KeyKind::Rsa : KeyKind::Ec};
    order.extensions = {Configured("basicConstraints", contents.isCa ? "critical,CA:TRUE" : "CA:FALSE")};
    if (contents.keyUsage != nullptr)
        order.extensions.push_back(Configured("keyUsage", contents.keyUsage));
    return CertificateOf(id, Text(order.der()));
}
