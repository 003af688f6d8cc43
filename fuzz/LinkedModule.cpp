#include "LinkedModule.h"

#include "Require.h"
#include "TokenManager.h"

#include <algorithm>
#include <cstring>
#include <utility>

LinkedModule linkedModule;

namespace {

constexpr CK_SLOT_ID kSlot = 7;
constexpr CK_SESSION_HANDLE kSession = 4711;
constexpr CK_OBJECT_HANDLE kFirstObject = 1;
constexpr std::size_t kSignatureSize = 256; // RSA 2048

std::vector<CK_OBJECT_HANDLE> found;
bool searching = false;
bool initialised = false;

CK_RV Answer(CK_RV right) { return linkedModule.answer(right); }
void Report(CK_ULONG* where, CK_ULONG right) { *where = linkedModule.number(right); }

/// Handles are the index of the certificate, which also stands for its key.
const LinkedModule::Certificate* Object(CK_OBJECT_HANDLE handle) {
    const std::size_t index = handle - kFirstObject;
    return index < linkedModule.certificates.size() ? &linkedModule.certificates[index] : nullptr;
}

CK_RV GiveValue(CK_ATTRIBUTE& attribute, const std::string& value) {
    const CK_ULONG room = attribute.ulValueLen;
    Report(&attribute.ulValueLen, value.size());
    if (attribute.pValue == nullptr)
        return CKR_OK;
    // All the room that the caller gave is used: a length that he takes for more is a bug of his.
    std::memset(attribute.pValue, '.', room);
    std::memcpy(attribute.pValue, value.data(), std::min<std::size_t>(room, value.size()));
    return room < value.size() ? CKR_BUFFER_TOO_SMALL : CKR_OK;
}

} // namespace

void LinkedModule::PlugIn() {
    static const bool isLoaded = [] {
        TokenDriverFullPath.clear();
        return tokenManager.LoadTokenDrivers().success;
    }();
    Require(isLoaded, "the host finds the module that is linked in");
    searching = initialised = false;
    TokenManager::TokenState = TOKEN_NOT_FOUND;
    tokenManager.hTokenSession = 0;
    tokenManager.TokenCertList.Clear();
    tokenManager.TokenUserPin = "1234";
    SelectCertDisplayListCKA_ID.clear();
    selCKA_ID.clear();
}

extern "C" {

CK_RV C_Initialize(void*) {
    return Answer(std::exchange(initialised, true) ? CKR_CRYPTOKI_ALREADY_INITIALIZED : CKR_OK);
}

CK_RV C_Finalize(void*) {
    initialised = false;
    return Answer(CKR_OK);
}

CK_RV C_GetSlotList(unsigned char, CK_SLOT_ID* slots, CK_ULONG* count) {
    if (slots != nullptr && *count > 0)
        slots[0] = kSlot;
    Report(count, 1);
    return Answer(CKR_OK);
}

CK_RV C_OpenSession(CK_SLOT_ID, CK_FLAGS, void*, CK_NOTIFY, CK_SESSION_HANDLE* session) {
    Report(session, kSession);
    return Answer(CKR_OK);
}

CK_RV C_Login(CK_SESSION_HANDLE, CK_USER_TYPE, unsigned char* pin, CK_ULONG length) {
    const std::string given(reinterpret_cast<char*>(pin), length);
    return Answer(given == "1234" ? CKR_OK : CKR_PIN_INCORRECT);
}

CK_RV C_FindObjectsInit(CK_SESSION_HANDLE, CK_ATTRIBUTE* wanted, CK_ULONG count) {
    if (std::exchange(searching, true))
        return Answer(CKR_OPERATION_ACTIVE);
    found.clear();
    for (std::size_t i = 0; i < linkedModule.certificates.size(); ++i) {
        const std::string id(linkedModule.certificates[i].id.c_str());
        if (std::none_of(wanted, wanted + count, [&](const CK_ATTRIBUTE& attribute) {
                return attribute.type == CKA_ID && static_cast<char*>(attribute.pValue) != id;
            }))
            found.push_back(kFirstObject + i);
    }
    std::reverse(found.begin(), found.end()); // taken from the back
    return Answer(CKR_OK);
}

CK_RV C_FindObjects(CK_SESSION_HANDLE, CK_OBJECT_HANDLE* objects, CK_ULONG, CK_ULONG* count) {
    if (found.empty()) {
        Report(count, 0);
        return Answer(CKR_OK);
    }
    Report(objects, found.back());
    found.pop_back();
    Report(count, 1);
    return Answer(CKR_OK);
}

CK_RV C_FindObjectsFinal(CK_SESSION_HANDLE) {
    searching = false;
    return Answer(CKR_OK);
}

CK_RV C_GetAttributeValue(CK_SESSION_HANDLE, CK_OBJECT_HANDLE handle, CK_ATTRIBUTE* attributes,
                          CK_ULONG count) {
    const LinkedModule::Certificate* certificate = Object(handle);
    if (certificate == nullptr)
        return Answer(CKR_OBJECT_HANDLE_INVALID);
    CK_RV result = CKR_OK;
    for (CK_ATTRIBUTE* attribute = attributes; attribute != attributes + count; ++attribute) {
        const std::string& value = attribute->type == CKA_ID ? certificate->id : certificate->der;
        if (const CK_RV given = GiveValue(*attribute, value); given != CKR_OK)
            result = given;
    }
    return Answer(result);
}

CK_RV C_SignInit(CK_SESSION_HANDLE, CK_MECHANISM*, CK_OBJECT_HANDLE) { return Answer(CKR_OK); }

CK_RV C_Sign(CK_SESSION_HANDLE, unsigned char* data, CK_ULONG size, unsigned char* signature,
             CK_ULONG* length) {
    std::string& made = linkedModule.signature;
    linkedModule.signedBytes.assign(data, data + size);
    made.assign(kSignatureSize, 'S');
    std::copy_n(linkedModule.signedBytes.begin(), std::min<std::size_t>(size, kSignatureSize), made.begin());
    Require(*length >= made.size(), "there is room for a signature");
    std::copy(made.begin(), made.end(), signature);
    Report(length, made.size());
    return Answer(CKR_OK);
}

CK_RV C_SignFinal(CK_SESSION_HANDLE, unsigned char*, CK_ULONG*) { return Answer(CKR_OK); }

} // extern "C"
