#include "FakeToken.h"

#include "CallRecord.h"

#include <openssl/rsa.h>

#include <algorithm>
#include <cstring>
#include <optional>

namespace {

/// What a key or certificate answers to a request for `type`; nothing when it has no such attribute.
std::optional<std::string> AttributeOf(const TokenObject& object, CK_ATTRIBUTE_TYPE type) {
    const auto number = [](CK_ULONG value) {
        return std::string(reinterpret_cast<const char*>(&value), sizeof value);
    };
    const bool isCertificate = object.objectClass == CKO_CERTIFICATE;
    switch (type) {
    case CKA_CLASS:
        return number(object.objectClass);
    case CKA_TOKEN:
        return std::string(1, '\1');
    case CKA_ID:
        return object.id;
    case CKA_CERTIFICATE_TYPE:
        return isCertificate ? std::optional(number(CKC_X_509)) : std::nullopt;
    case CKA_VALUE:
        return isCertificate ? std::optional(object.value) : std::nullopt;
    case CKA_KEY_TYPE:
        return isCertificate ? std::nullopt : std::optional(number(CKK_RSA));
    default:
        return std::nullopt;
    }
}

const EVP_MD* HashOf(CK_MECHANISM_TYPE mechanism) {
    switch (mechanism) {
    case CKM_SHA256_RSA_PKCS:
        return EVP_sha256();
    case CKM_SHA384_RSA_PKCS:
        return EVP_sha384();
    case CKM_SHA512_RSA_PKCS:
        return EVP_sha512();
    default:
        return nullptr;
    }
}

/// PKCS#1 v1.5 over the bytes as they are for CKM_RSA_PKCS, over their hash for the other mechanisms. Empty
/// on failure.
std::string RsaSign(EVP_PKEY* key, CK_MECHANISM_TYPE mechanism, const std::string& data) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(data.data());
    std::string signature(static_cast<size_t>(EVP_PKEY_get_size(key)), '\0');
    auto* out = reinterpret_cast<unsigned char*>(signature.data());
    size_t length = signature.size();
    if (const EVP_MD* hash = HashOf(mechanism)) {
        const EvpPtr<EVP_MD_CTX> context(EVP_MD_CTX_new());
        if (EVP_DigestSignInit(context.get(), nullptr, hash, nullptr, key) <= 0 ||
            EVP_DigestSign(context.get(), out, &length, bytes, data.size()) <= 0)
            return {};
    } else {
        const EvpPtr<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new(key, nullptr));
        if (EVP_PKEY_sign_init(context.get()) <= 0 ||
            EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) <= 0 ||
            EVP_PKEY_sign(context.get(), out, &length, bytes, data.size()) <= 0)
            return {};
    }
    signature.resize(length);
    return signature;
}

} // namespace

CK_RV FakeToken::Initialize() {
    if (initialised_ && !script_.forgiving)
        return CKR_CRYPTOKI_ALREADY_INITIALIZED;
    initialised_ = true;
    return CKR_OK;
}

CK_RV FakeToken::Finalize() {
    initialised_ = loggedIn_ = searching_ = false;
    nextSession_ = kFirstSession;
    return CKR_OK;
}

CK_RV FakeToken::GetSlotList(CK_SLOT_ID* list, CK_ULONG* count) const {
    const CK_ULONG room = *count;
    *count = script_.slots.size();
    if (list && room < script_.slots.size())
        return CKR_BUFFER_TOO_SMALL;
    if (list)
        std::copy(script_.slots.begin(), script_.slots.end(), list);
    return CKR_OK;
}

CK_RV FakeToken::OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, CK_SESSION_HANDLE* session) {
    if (std::find(script_.slots.begin(), script_.slots.end(), slot) == script_.slots.end())
        return CKR_SLOT_ID_INVALID;
    if (!(flags & CKF_SERIAL_SESSION))
        return CKR_SESSION_PARALLEL_NOT_SUPPORTED;
    *session = nextSession_++;
    return CKR_OK;
}

/// Makes no copy of what was given.
bool FakeToken::IsPin(std::string_view given) const {
    if (script_.pinSha256.empty())
        return given == script_.pin;
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(given.data(), given.size(), digest, &length, EVP_sha256(), nullptr);
    return HexOf(digest, length) == script_.pinSha256;
}

CK_RV FakeToken::Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, std::string_view pin) {
    if (!Knows(session))
        return CKR_SESSION_HANDLE_INVALID;
    if (user != CKU_USER)
        return CKR_USER_TYPE_INVALID;
    if (loggedIn_)
        return CKR_USER_ALREADY_LOGGED_IN;
    if (wrongPins_ >= script_.pinTries)
        return CKR_PIN_LOCKED;
    if (!IsPin(pin)) {
        ++wrongPins_;
        return CKR_PIN_INCORRECT;
    }
    wrongPins_ = 0;
    loggedIn_ = true;
    return CKR_OK;
}

const TokenObject* FakeToken::Find(CK_OBJECT_HANDLE handle) const {
    const bool known = handle >= kFirstObject && handle - kFirstObject < script_.objects.size();
    return known ? &script_.objects[handle - kFirstObject] : nullptr;
}

bool FakeToken::Matches(const TokenObject& object, const CK_ATTRIBUTE& wanted) const {
    auto value = AttributeOf(object, wanted.type);
    if (!value)
        return false;
    std::string asked(static_cast<const char*>(wanted.pValue), wanted.ulValueLen);
    if (!script_.strict && wanted.type != CKA_TOKEN && wanted.type != CKA_ID)
        asked.resize(sizeof(CK_ULONG), '\0');
    if (!script_.strict && wanted.type == CKA_ID && asked.size() == value->size() + 1 && asked.back() == '\0')
        asked.pop_back();
    return asked == *value;
}

CK_RV FakeToken::FindObjectsInit(CK_SESSION_HANDLE session, const CK_ATTRIBUTE* attributes, CK_ULONG count) {
    if (!Knows(session))
        return CKR_SESSION_HANDLE_INVALID;
    if (searching_ && !script_.forgiving)
        return CKR_OPERATION_ACTIVE;
    searching_ = true;
    found_.clear();
    for (size_t i = 0; i < script_.objects.size(); ++i) {
        const TokenObject& object = script_.objects[i];
        const bool visible = object.objectClass != CKO_PRIVATE_KEY || loggedIn_;
        if (visible && std::all_of(attributes, attributes + count,
                                   [&](const CK_ATTRIBUTE& wanted) { return Matches(object, wanted); }))
            found_.push_back(kFirstObject + i);
    }
    return CKR_OK;
}

CK_RV FakeToken::FindObjects(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE* objects, CK_ULONG max,
                             CK_ULONG* count) {
    if (!Knows(session))
        return CKR_SESSION_HANDLE_INVALID;
    if (!searching_)
        return CKR_OPERATION_NOT_INITIALIZED;
    for (*count = 0; *count < max && !found_.empty(); ++*count) {
        objects[*count] = found_.front();
        found_.pop_front();
    }
    return CKR_OK;
}

CK_RV FakeToken::FindObjectsFinal(CK_SESSION_HANDLE session) {
    if (!Knows(session))
        return CKR_SESSION_HANDLE_INVALID;
    return std::exchange(searching_, false) ? CKR_OK : CKR_OPERATION_NOT_INITIALIZED;
}

CK_RV FakeToken::GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE handle,
                                   CK_ATTRIBUTE* attributes, CK_ULONG count) const {
    if (!Knows(session))
        return CKR_SESSION_HANDLE_INVALID;
    const TokenObject* object = Find(handle);
    if (!object)
        return CKR_OBJECT_HANDLE_INVALID;
    CK_RV result = CKR_OK;
    for (CK_ATTRIBUTE* attribute = attributes; attribute != attributes + count; ++attribute) {
        const auto value = AttributeOf(*object, attribute->type);
        const CK_ULONG room = attribute->ulValueLen;
        attribute->ulValueLen = value ? value->size() : CK_UNAVAILABLE_INFORMATION;
        if (!value) {
            result = CKR_ATTRIBUTE_TYPE_INVALID;
        } else if (attribute->pValue && room < value->size()) {
            attribute->ulValueLen = CK_UNAVAILABLE_INFORMATION;
            result = CKR_BUFFER_TOO_SMALL;
        } else if (attribute->pValue) {
            std::memcpy(attribute->pValue, value->data(), value->size());
        }
    }
    return result;
}

CK_RV FakeToken::SignInit(CK_SESSION_HANDLE session, const CK_MECHANISM& mechanism, CK_OBJECT_HANDLE key) {
    if (!Knows(session))
        return CKR_SESSION_HANDLE_INVALID;
    if (!loggedIn_)
        return CKR_USER_NOT_LOGGED_IN;
    if (signKey_ && !script_.forgiving)
        return CKR_OPERATION_ACTIVE;
    const TokenObject* object = Find(key);
    if (!object || !object->key)
        return CKR_KEY_HANDLE_INVALID;
    if (mechanism.mechanism != CKM_RSA_PKCS && !HashOf(mechanism.mechanism))
        return CKR_MECHANISM_INVALID;
    signMechanism_ = mechanism.mechanism;
    signKey_ = object;
    return CKR_OK;
}

CK_RV FakeToken::Sign(CK_SESSION_HANDLE session, const std::string& data, CK_BYTE* signature,
                      CK_ULONG* length) {
    if (!Knows(session))
        return CKR_SESSION_HANDLE_INVALID;
    if (!signKey_)
        return CKR_OPERATION_NOT_INITIALIZED;
    const CK_ULONG room = *length;
    *length = static_cast<CK_ULONG>(EVP_PKEY_get_size(signKey_->key.get()));
    if (!signature)
        return CKR_OK;
    if (room < *length)
        return CKR_BUFFER_TOO_SMALL;
    const std::string bytes = RsaSign(std::exchange(signKey_, nullptr)->key.get(), signMechanism_, data);
    if (bytes.empty())
        return CKR_DATA_LEN_RANGE;
    std::memcpy(signature, bytes.data(), bytes.size());
    return CKR_OK;
}
