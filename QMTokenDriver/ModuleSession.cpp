#include "ModuleSession.h"

#include "Pkcs11Error.h"

#include <array>

namespace tokendriver {

namespace {

/// Objects fetched from the module in one call.
constexpr std::size_t kObjectsPerCall = 256;

/// Room that most values fit in, so that they are read without asking for their length first.
constexpr std::size_t kUsualBytes = 2048;

} // namespace

ModuleSession::ModuleSession(CK_FUNCTION_LIST& module, CK_SLOT_ID slot, CK_FLAGS flags)
    : module_(module), opened_(module_.C_OpenSession(slot, flags, nullptr, nullptr, &session_)) {
    if (opened_ == CKR_TOKEN_WRITE_PROTECTED)
        opened_ = module_.C_OpenSession(slot, flags & ~CKF_RW_SESSION, nullptr, nullptr, &session_);
}

// Also after the token is gone: p11-kit keeps count of sessions that the module has lost.
ModuleSession::~ModuleSession() {
    if (opened_ == CKR_OK)
        module_.C_CloseSession(session_);
}

std::vector<CK_OBJECT_HANDLE> ModuleSession::Find(std::span<CK_ATTRIBUTE> wanted) const {
    Check(opened_);
    Check(module_.C_FindObjectsInit(session_, wanted.data(), wanted.size()));
    std::vector<CK_OBJECT_HANDLE> objects;
    std::array<CK_OBJECT_HANDLE, kObjectsPerCall> some{};
    CK_ULONG count = some.size();
    CK_RV answer = CKR_OK;
    while (answer == CKR_OK && count > 0 && objects.size() <= kMaxObjectsLookedAt) {
        count = 0;
        answer = module_.C_FindObjects(session_, some.data(), some.size(), &count);
        if (answer == CKR_OK && count > some.size())
            answer = CKR_DEVICE_ERROR;
        if (answer == CKR_OK)
            objects.insert(objects.end(), some.begin(), some.begin() + static_cast<std::ptrdiff_t>(count));
    }
    module_.C_FindObjectsFinal(session_);
    Check(answer);
    if (objects.size() > kMaxObjectsLookedAt)
        throw Pkcs11Error(CKR_DEVICE_MEMORY);
    return objects;
}

std::vector<std::optional<Bytes>>
ModuleSession::Values(CK_OBJECT_HANDLE object, std::initializer_list<CK_ATTRIBUTE_TYPE> types) const {
    Check(opened_);
    std::vector<Bytes> rooms(types.size(), Bytes(kUsualBytes));
    std::vector<CK_ATTRIBUTE> wanted;
    for (const CK_ATTRIBUTE_TYPE type : types)
        wanted.push_back({type, rooms[wanted.size()].data(), kUsualBytes});
    const CK_RV answer = module_.C_GetAttributeValue(session_, object, wanted.data(), wanted.size());
    if (IsGone(answer))
        throw Pkcs11Error(answer);
    std::vector<std::optional<Bytes>> values(types.size());
    if (!HoldsLengths(answer))
        return values;
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (wanted[i].ulValueLen <= kUsualBytes) {
            rooms[i].resize(wanted[i].ulValueLen);
            values[i] = std::move(rooms[i]);
        } else if (answer != CKR_OK) {
            values[i] = LongValue(object, wanted[i].type);
        }
    }
    return values;
}

std::optional<Bytes> ModuleSession::LongValue(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) const {
    CK_ATTRIBUTE attribute{type, nullptr, 0};
    if (module_.C_GetAttributeValue(session_, object, &attribute, 1) != CKR_OK ||
        attribute.ulValueLen > kMaxAttributeBytes)
        return std::nullopt;
    Bytes value(attribute.ulValueLen);
    attribute.pValue = value.data();
    if (module_.C_GetAttributeValue(session_, object, &attribute, 1) != CKR_OK ||
        attribute.ulValueLen > value.size())
        return std::nullopt;
    value.resize(attribute.ulValueLen);
    return value;
}

std::vector<CK_OBJECT_HANDLE> ModuleSession::Certificates() const {
    CK_OBJECT_CLASS certificate = CKO_CERTIFICATE;
    CK_CERTIFICATE_TYPE x509 = CKC_X_509;
    std::array wanted = {CK_ATTRIBUTE{CKA_CLASS, &certificate, sizeof certificate},
                         CK_ATTRIBUTE{CKA_CERTIFICATE_TYPE, &x509, sizeof x509}};
    return Find(wanted);
}

CK_RV ModuleSession::Login(CK_USER_TYPE user, std::span<CK_UTF8CHAR> pin) const {
    return opened_ == CKR_OK ? module_.C_Login(session_, user, pin.data(), pin.size()) : opened_;
}

} // namespace tokendriver
