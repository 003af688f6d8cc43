#include "Token.h"

#include <dlfcn.h>

#include <cstdio>
#include <stdexcept>

template <class Function>
Function ReferenceToken::Resolve(const char* name) {
    void* const symbol = dlsym(handle_, name);
    if (!symbol)
        throw std::runtime_error(std::string("the module lacks ") + name);
    return reinterpret_cast<Function>(symbol);
}

template <class Function, class... Arguments>
void ReferenceToken::Call(const char* name, Function function, Arguments... arguments) {
    if (const CK_RV result = function(arguments...); result != CKR_OK) {
        char text[80];
        std::snprintf(text, sizeof text, "%s: 0x%lX", name, result);
        throw std::runtime_error(text);
    }
}

ReferenceToken::ReferenceToken(const char* modulePath) : handle_(dlopen(modulePath, RTLD_NOW)) {
    if (!handle_)
        throw std::runtime_error(dlerror());
    login_ = Resolve<CK_C_Login>("C_Login");
    findObjectsInit_ = Resolve<CK_C_FindObjectsInit>("C_FindObjectsInit");
    findObjects_ = Resolve<CK_C_FindObjects>("C_FindObjects");
    findObjectsFinal_ = Resolve<CK_C_FindObjectsFinal>("C_FindObjectsFinal");
    getAttributeValue_ = Resolve<CK_C_GetAttributeValue>("C_GetAttributeValue");
    signInit_ = Resolve<CK_C_SignInit>("C_SignInit");
    sign_ = Resolve<CK_C_Sign>("C_Sign");

    Call("C_Initialize", Resolve<CK_C_Initialize>("C_Initialize"), nullptr);
    const auto getSlotList = Resolve<CK_C_GetSlotList>("C_GetSlotList");
    CK_ULONG count = 0;
    Call("C_GetSlotList", getSlotList, CK_BBOOL{CK_TRUE}, nullptr, &count);
    std::vector<CK_SLOT_ID> slots(count);
    Call("C_GetSlotList", getSlotList, CK_BBOOL{CK_TRUE}, slots.data(), &count);
    if (count == 0)
        throw std::runtime_error("the module shows no token");
    Call("C_OpenSession", Resolve<CK_C_OpenSession>("C_OpenSession"), slots.front(),
         CK_FLAGS{CKF_SERIAL_SESSION | CKF_RW_SESSION}, nullptr, nullptr, &session_);
}

void ReferenceToken::Login(CK_USER_TYPE user, const std::string& pin) {
    std::string copy = pin;
    Call("C_Login", login_, session_, user, reinterpret_cast<CK_UTF8CHAR_PTR>(copy.data()),
         CK_ULONG{copy.size()});
}

template <class Each>
void ReferenceToken::Find(std::vector<CK_ATTRIBUTE> search, Each&& each) {
    Call("C_FindObjectsInit", findObjectsInit_, session_, search.data(), CK_ULONG{search.size()});
    for (bool more = true; more;) {
        CK_OBJECT_HANDLE object = 0;
        CK_ULONG count = 0;
        Call("C_FindObjects", findObjects_, session_, &object, CK_ULONG{1}, &count);
        more = count == 1 && each(object);
    }
    Call("C_FindObjectsFinal", findObjectsFinal_, session_);
}

std::string ReferenceToken::FindKeyAndSign(std::string id, std::string data) {
    CK_OBJECT_CLASS keyClass = CKO_PRIVATE_KEY;
    CK_KEY_TYPE keyType = CKK_RSA;
    CK_BBOOL onToken = CK_TRUE;
    CK_OBJECT_HANDLE key = 0;
    Find({{CKA_CLASS, &keyClass, sizeof keyClass},
          {CKA_KEY_TYPE, &keyType, sizeof keyType},
          {CKA_TOKEN, &onToken, sizeof onToken},
          {CKA_ID, id.data(), id.size()}},
         [&](CK_OBJECT_HANDLE found) {
             key = found;
             return false;
         });
    CK_MECHANISM mechanism = {CKM_SHA256_RSA_PKCS, nullptr, 0};
    std::string signature(1024, '\0');
    CK_ULONG length = signature.size();
    Call("C_SignInit", signInit_, session_, &mechanism, key);
    Call("C_Sign", sign_, session_, reinterpret_cast<CK_BYTE_PTR>(data.data()), CK_ULONG{data.size()},
         reinterpret_cast<CK_BYTE_PTR>(signature.data()), &length);
    signature.resize(length);
    return signature;
}

std::vector<std::string> ReferenceToken::Certificates() {
    CK_OBJECT_CLASS certificateClass = CKO_CERTIFICATE;
    CK_CERTIFICATE_TYPE certificateType = CKC_X_509;
    CK_BBOOL onToken = CK_TRUE;
    std::vector<std::string> certificates;
    Find({{CKA_CLASS, &certificateClass, sizeof certificateClass},
          {CKA_CERTIFICATE_TYPE, &certificateType, sizeof certificateType},
          {CKA_TOKEN, &onToken, sizeof onToken}},
         [&](CK_OBJECT_HANDLE object) {
             CK_ATTRIBUTE attributes[] = {{CKA_VALUE, nullptr, 0}, {CKA_ID, nullptr, 0}};
             Call("C_GetAttributeValue", getAttributeValue_, session_, object, &attributes[0], CK_ULONG{2});
             std::string value(attributes[0].ulValueLen, '\0');
             std::string id(attributes[1].ulValueLen, '\0');
             attributes[0].pValue = value.data();
             attributes[1].pValue = id.data();
             Call("C_GetAttributeValue", getAttributeValue_, session_, object, &attributes[0], CK_ULONG{2});
             certificates.push_back(std::move(value));
             return true;
         });
    return certificates;
}

void ReferenceToken::Create(std::vector<CK_ATTRIBUTE> attributes) {
    CK_OBJECT_HANDLE object = 0;
    Call("C_CreateObject", Resolve<CK_C_CreateObject>("C_CreateObject"), session_, attributes.data(),
         CK_ULONG{attributes.size()}, &object);
}
