#include "FakeToken.h"

#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <cstring>

namespace {

struct Free {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(EVP_PKEY_CTX* context) const { EVP_PKEY_CTX_free(context); }
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(X509_EXTENSION* extension) const { X509_EXTENSION_free(extension); }
};
template <class Handle>
using Owned = std::unique_ptr<Handle, Free>;

constexpr std::size_t kSignatureBytes = 256;

const EVP_MD* HashOf(CK_MECHANISM_TYPE mechanism) {
    if (mechanism == CKM_SHA256_RSA_PKCS)
        return EVP_sha256();
    return mechanism == CKM_SHA384_RSA_PKCS ? EVP_sha384() : EVP_sha512();
}

void AddExtension(X509* certificate, int nid, const char* value) {
    const Owned<X509_EXTENSION> extension(X509V3_EXT_conf_nid(nullptr, nullptr, nid, value));
    X509_add_ext(certificate, extension.get(), -1);
}

template <std::size_t Size>
void Pad(CK_UTF8CHAR (&field)[Size], const std::string& text) {
    std::fill(std::begin(field), std::end(field), ' ');
    std::copy_n(text.begin(), std::min(text.size(), Size), field);
}

} // namespace

struct FakeToken::Key {
    Owned<EVP_PKEY> pair{EVP_RSA_gen(8 * kSignatureBytes)};
};

FakeToken::FakeToken() = default;
FakeToken::~FakeToken() = default;

std::vector<CK_MECHANISM_TYPE> FakeToken::Mechanisms() {
    return {CKM_RSA_PKCS, CKM_SHA256_RSA_PKCS, CKM_SHA384_RSA_PKCS, CKM_SHA512_RSA_PKCS};
}

std::vector<FakeToken::Object> FakeToken::MakeObjects() { return KeyPair({0xab, 0xcd, 0x01}); }

CK_RV FakeToken::GetTokenInfo(CK_TOKEN_INFO& info) {
    info = {};
    Pad(info.label, label);
    Pad(info.manufacturerID, "Quillmark tests");
    Pad(info.model, "Fake");
    Pad(info.serialNumber, serialNumber);
    info.flags = TokenFlags() | moreTokenFlags;
    return CKR_OK;
}

CK_RV FakeToken::OpenSession(CK_FLAGS, CK_SESSION_HANDLE& session) {
    if (!present)
        return CKR_TOKEN_NOT_PRESENT;
    session = ++lastSession_;
    sessions_[session] = {pulls, {}, {}};
    return CKR_OK;
}

CK_RV FakeToken::CloseSession(CK_SESSION_HANDLE session) {
    if (Find(session) == nullptr)
        return goneAnswer;
    sessions_.erase(session);
    loggedIn = loggedIn && !sessions_.empty();
    return CKR_OK;
}

FakeToken::SessionState* FakeToken::Find(CK_SESSION_HANDLE session) {
    const auto found = sessions_.find(session);
    return found == sessions_.end() || found->second.pulls != pulls ? nullptr : &found->second;
}

CK_RV FakeToken::Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, std::string_view typed) {
    SessionState* const state = Find(session);
    if (state == nullptr)
        return goneAnswer;
    ++(user == CKU_CONTEXT_SPECIFIC ? keyLogins : logins);
    pinsTried.emplace_back(typed);
    if (loginAnswer != CKR_OK)
        return loginAnswer;
    if (typed != pin)
        return CKR_PIN_INCORRECT;
    std::optional<SigningState>& signing = state->signing;
    if (user == CKU_CONTEXT_SPECIFIC) {
        if (!signing)
            return CKR_OPERATION_NOT_INITIALIZED;
        signing->authenticated = true;
        return CKR_OK;
    }
    return std::exchange(loggedIn, true) ? CKR_USER_ALREADY_LOGGED_IN : CKR_OK;
}

bool FakeToken::IsVisible(const Object& object) const {
    return loggedIn || object.at(CKA_PRIVATE) == Bytes{CK_FALSE};
}

CK_RV FakeToken::FindObjectsInit(CK_SESSION_HANDLE session, std::span<const CK_ATTRIBUTE> wanted) {
    SessionState* const state = Find(session);
    if (state == nullptr)
        return goneAnswer;
    std::optional<std::vector<CK_OBJECT_HANDLE>>& search = state->search;
    if (search)
        return CKR_OPERATION_ACTIVE;
    search.emplace();
    for (std::size_t i = Objects().size(); i-- > 0;) { // the last is the first to go
        const Object& object = Objects()[i];
        const bool matches =
            std::all_of(wanted.begin(), wanted.end(), [&object](const CK_ATTRIBUTE& attribute) {
                const auto known = object.find(attribute.type);
                const auto* value = static_cast<const CK_BYTE*>(attribute.pValue);
                return known != object.end() && known->second == Bytes(value, value + attribute.ulValueLen);
            });
        if (matches && IsVisible(object))
            search->push_back(FirstObject() + i);
    }
    return CKR_OK;
}

CK_RV FakeToken::FindObjects(CK_SESSION_HANDLE session, std::span<CK_OBJECT_HANDLE> found, CK_ULONG& count) {
    SessionState* const state = Find(session);
    if (state == nullptr)
        return goneAnswer;
    std::optional<std::vector<CK_OBJECT_HANDLE>>& search = state->search;
    if (!search)
        return CKR_OPERATION_NOT_INITIALIZED;
    for (count = 0; count < found.size() && !search->empty(); search->pop_back())
        found[count++] = search->back();
    return CKR_OK;
}

CK_RV FakeToken::FindObjectsFinal(CK_SESSION_HANDLE session) {
    SessionState* const state = Find(session);
    if (state == nullptr)
        return goneAnswer;
    if (!state->search)
        return CKR_OPERATION_NOT_INITIALIZED;
    state->search.reset();
    return CKR_OK;
}

CK_RV FakeToken::GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE handle,
                                   std::span<CK_ATTRIBUTE> wanted) {
    SessionState* const state = Find(session);
    if (state == nullptr)
        return goneAnswer;
    const Object* object = FindObject(handle);
    if (object == nullptr)
        return CKR_OBJECT_HANDLE_INVALID;
    CK_RV answer = CKR_OK;
    for (CK_ATTRIBUTE& attribute : wanted) {
        const auto known = object->find(attribute.type);
        const CK_ULONG capacity = std::exchange(attribute.ulValueLen, CK_UNAVAILABLE_INFORMATION);
        if (known == object->end())
            answer = CKR_ATTRIBUTE_TYPE_INVALID;
        else if (attribute.pValue != nullptr && capacity < known->second.size())
            answer = CKR_BUFFER_TOO_SMALL;
        else {
            attribute.ulValueLen = known->second.size();
            if (attribute.pValue != nullptr)
                std::memcpy(attribute.pValue, known->second.data(), known->second.size());
        }
    }
    return answer;
}

CK_RV FakeToken::SignInit(CK_SESSION_HANDLE session, CK_MECHANISM_TYPE mechanism, CK_OBJECT_HANDLE key) {
    SessionState* const state = Find(session);
    if (state == nullptr)
        return goneAnswer;
    std::optional<SigningState>& signing = state->signing;
    const Object* object = FindObject(key);
    const std::vector<CK_MECHANISM_TYPE> mechanisms = Mechanisms();
    if (signing)
        return CKR_OPERATION_ACTIVE;
    if (std::find(mechanisms.begin(), mechanisms.end(), mechanism) == mechanisms.end())
        return CKR_MECHANISM_INVALID;
    if (object == nullptr || object->at(CKA_CLASS) != Number(CKO_PRIVATE_KEY))
        return CKR_KEY_HANDLE_INVALID;
    if (!loggedIn)
        return CKR_USER_NOT_LOGGED_IN;
    signing = SigningState{mechanism, object->at(CKA_ALWAYS_AUTHENTICATE) == Bytes{CK_FALSE}};
    return CKR_OK;
}

CK_RV FakeToken::Sign(CK_SESSION_HANDLE session, std::span<CK_BYTE> data, CK_BYTE* signature,
                      CK_ULONG& length) {
    SessionState* const state = Find(session);
    if (state == nullptr)
        return goneAnswer;
    std::optional<SigningState>& signing = state->signing;
    if (!signing)
        return CKR_OPERATION_NOT_INITIALIZED;
    const CK_ULONG capacity = std::exchange(length, kSignatureBytes);
    if (signature == nullptr)
        return CKR_OK;
    if (capacity < kSignatureBytes)
        return CKR_BUFFER_TOO_SMALL;
    const SigningState begun = *signing;
    signing.reset();
    if (!begun.authenticated)
        return CKR_USER_NOT_LOGGED_IN;
    const Bytes made = SignBytes(begun.mechanism, data);
    std::copy(made.begin(), made.end(), signature);
    return made.empty() ? CKR_DATA_LEN_RANGE : CKR_OK;
}

FakeToken::Bytes FakeToken::SignBytes(CK_MECHANISM_TYPE mechanism, std::span<const CK_BYTE> data) {
    Bytes signature(kSignatureBytes);
    std::size_t length = signature.size();
    bool isDone = false;
    if (mechanism == CKM_RSA_PKCS) {
        const Owned<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new(TheKey().pair.get(), nullptr));
        isDone = EVP_PKEY_sign_init(context.get()) == 1 &&
                 EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) == 1 &&
                 EVP_PKEY_sign(context.get(), signature.data(), &length, data.data(), data.size()) == 1;
    } else {
        const Owned<EVP_MD_CTX> context(EVP_MD_CTX_new());
        isDone = EVP_DigestSignInit(context.get(), nullptr, HashOf(mechanism), nullptr,
                                    TheKey().pair.get()) == 1 &&
                 EVP_DigestSign(context.get(), signature.data(), &length, data.data(), data.size()) == 1;
    }
    return isDone ? signature : Bytes{};
}

FakeToken::Object* FakeToken::FindObject(CK_OBJECT_HANDLE handle) {
    const bool isKnown = handle >= FirstObject() && handle - FirstObject() < Objects().size();
    return isKnown ? &Objects()[handle - FirstObject()] : nullptr;
}

FakeToken::Key& FakeToken::TheKey() {
    if (!key_)
        key_ = std::make_unique<Key>();
    return *key_;
}

std::vector<FakeToken::Object>& FakeToken::Objects() {
    if (!objects_)
        objects_ = MakeObjects();
    return *objects_;
}

FakeToken::Bytes FakeToken::Number(CK_ULONG value) {
    Bytes bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

FakeToken::Object FakeToken::Certificate(const Bytes& id, const Contents& contents) {
    const Owned<X509> certificate(X509_new());
    X509_set_version(certificate.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), contents.notBefore);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), contents.notAfter);
    X509_NAME* name = X509_get_subject_name(certificate.get());
    const auto* commonName = reinterpret_cast<const unsigned char*>(contents.name);
    X509_NAME_add_entry_by_NID(name, NID_commonName, MBSTRING_UTF8, commonName, -1, -1, 0);
    X509_set_issuer_name(certificate.get(), name);
    const Owned<EVP_PKEY> other(contents.isRsa ? nullptr : EVP_EC_gen("P-256"));
    X509_set_pubkey(certificate.get(), contents.isRsa ? TheKey().pair.get() : other.get());
    AddExtension(certificate.get(), NID_basic_constraints, contents.isCa ? "critical,CA:TRUE" : "CA:FALSE");
    if (contents.keyUsage != nullptr)
        AddExtension(certificate.get(), NID_key_usage, contents.keyUsage);
    X509_sign(certificate.get(), TheKey().pair.get(), EVP_sha256());

    Bytes der(static_cast<std::size_t>(i2d_X509(certificate.get(), nullptr)));
    CK_BYTE* at = der.data();
    i2d_X509(certificate.get(), &at);
    return {{CKA_CLASS, Number(CKO_CERTIFICATE)},
            {CKA_CERTIFICATE_TYPE, Number(CKC_X_509)},
            {CKA_TOKEN, {CK_TRUE}},
            {CKA_PRIVATE, {CK_FALSE}},
            {CKA_ID, id},
            {CKA_LABEL, Text("certificate")},
            {CKA_VALUE, der}};
}

FakeToken::Object FakeToken::PrivateKey(const Bytes& id) {
    return {{CKA_CLASS, Number(CKO_PRIVATE_KEY)},
            {CKA_KEY_TYPE, Number(CKK_RSA)},
            {CKA_TOKEN, {CK_TRUE}},
            {CKA_PRIVATE, {CK_TRUE}},
            {CKA_ID, id},
            {CKA_SIGN, {CK_TRUE}},
            {CKA_ALWAYS_AUTHENTICATE, {CK_FALSE}}};
}
