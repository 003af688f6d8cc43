#include "TokenReader.h"

#include <array>

namespace tokendriver {

TokenReader::TokenReader(CK_FUNCTION_LIST& module, CK_SLOT_ID slot)
    : module_(module), opened_(module_.C_OpenSession(slot, CKF_SERIAL_SESSION, nullptr, nullptr, &session_)) {
}

TokenReader::~TokenReader() {
    if (opened_ == CKR_OK)
        module_.C_CloseSession(session_);
}

std::vector<CK_OBJECT_HANDLE> TokenReader::Find(std::span<CK_ATTRIBUTE> wanted) {
    std::vector<CK_OBJECT_HANDLE> objects;
    if (opened_ != CKR_OK || module_.C_FindObjectsInit(session_, wanted.data(), wanted.size()) != CKR_OK)
        return objects;
    CK_OBJECT_HANDLE object = 0;
    CK_ULONG count = 0;
    while (objects.size() < kMaxObjectsLookedAt &&
           module_.C_FindObjects(session_, &object, 1, &count) == CKR_OK && count == 1)
        objects.push_back(object);
    module_.C_FindObjectsFinal(session_);
    return objects;
}

std::optional<Bytes> TokenReader::Value(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
    CK_ATTRIBUTE attribute{type, nullptr, 0};
    if (module_.C_GetAttributeValue(session_, object, &attribute, 1) != CKR_OK ||
        attribute.ulValueLen > kMaxAttributeBytes)
        return std::nullopt;
    Bytes value(attribute.ulValueLen);
    if (value.empty())
        return value;
    attribute.pValue = value.data();
    if (module_.C_GetAttributeValue(session_, object, &attribute, 1) != CKR_OK ||
        attribute.ulValueLen > value.size())
        return std::nullopt;
    value.resize(attribute.ulValueLen);
    return value;
}

std::vector<CK_OBJECT_HANDLE> TokenReader::Certificates() {
    CK_OBJECT_CLASS certificate = CKO_CERTIFICATE;
    CK_CERTIFICATE_TYPE x509 = CKC_X_509;
    std::array wanted = {CK_ATTRIBUTE{CKA_CLASS, &certificate, sizeof certificate},
                         CK_ATTRIBUTE{CKA_CERTIFICATE_TYPE, &x509, sizeof x509}};
    return Find(wanted);
}

std::vector<CK_OBJECT_HANDLE> TokenReader::PrivateKeys(Bytes id) {
    CK_OBJECT_CLASS key = CKO_PRIVATE_KEY;
    std::array wanted = {CK_ATTRIBUTE{CKA_CLASS, &key, sizeof key},
                         CK_ATTRIBUTE{CKA_ID, id.data(), id.size()}};
    return Find(wanted);
}

CK_RV TokenReader::Login(CK_UTF8CHAR* pin, CK_ULONG length) {
    return opened_ == CKR_OK ? module_.C_Login(session_, CKU_USER, pin, length) : opened_;
}

} // namespace tokendriver
