// The functions of every fake module, one line of work each: by their names, for the host, and in a list, for
// the driver.

#include "FakeToken.h"

#include <algorithm>

namespace {

std::unique_ptr<FakeToken>& Slot() {
    static std::unique_ptr<FakeToken> token = MakeFakeToken();
    return token;
}

template <class Work>
CK_RV Serve(const Call& call, Work work) {
    return TheToken().Serve(call, [&] { return work(TheToken()); });
}

template <class Work>
CK_RV ServeSession(CK_SESSION_HANDLE handle, Call call, Work work) {
    call.in.push_back({"session", handle});
    return Serve(call, [&](FakeToken& token) {
        return token.InSession(handle, [&](FakeToken::Session& session) { return work(token, session); });
    });
}

template <class Number>
CK_RV AnswerList(const std::vector<Number>& all, Number* list, CK_ULONG& count) {
    const CK_ULONG capacity = std::exchange(count, all.size());
    if (list == nullptr)
        return CKR_OK;
    if (capacity < count)
        return CKR_BUFFER_TOO_SMALL;
    std::copy(all.begin(), all.end(), list);
    return CKR_OK;
}

/// The length field of the attribute of this type; null when the template has none.
CK_ULONG* LengthOf(CK_ATTRIBUTE* attributes, CK_ULONG count, CK_ATTRIBUTE_TYPE type) {
    for (CK_ULONG i = 0; i < count; ++i)
        if (attributes[i].type == type)
            return &attributes[i].ulValueLen;
    return nullptr;
}

using Attributes = std::span<const CK_ATTRIBUTE>;

} // namespace

FakeToken& TheToken() { return *Slot(); }

FakeTokenState* NewFakeToken() {
    Slot() = MakeFakeToken();
    return Slot().get();
}

CK_RV C_Initialize(void* arguments) {
    return Serve({"C_Initialize", {{"isNull", arguments == nullptr}}},
                 [](FakeToken& token) { return token.Initialize(); });
}

CK_RV C_Finalize(void* reserved) {
    return Serve({"C_Finalize", {{"isNull", reserved == nullptr}}},
                 [](FakeToken& token) { return token.Finalize(); });
}

CK_RV C_GetSlotList(CK_BBOOL present, CK_SLOT_ID* list, CK_ULONG* count) {
    ++TheToken().listings;
    return Serve({"C_GetSlotList",
                  {{"tokenPresent", CK_ULONG{present}}, {"isNull", list == nullptr}, {"count", *count}},
                  {{"count", count}, {"slot", list}}},
                 [&](FakeToken& token) { return AnswerList(token.Slots(), list, *count); });
}

CK_RV C_OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, void* application, CK_NOTIFY notify,
                    CK_SESSION_HANDLE* session) {
    return Serve({"C_OpenSession",
                  {{"slot", slot},
                   {"flags", flags},
                   {"applicationIsNull", application == nullptr},
                   {"notifyIsNull", notify == nullptr}},
                  {{"session", session}}},
                 [&](FakeToken& token) { return token.OpenSession(slot, flags, *session); });
}

CK_RV C_Login(CK_SESSION_HANDLE handle, CK_USER_TYPE user, CK_UTF8CHAR* pin, CK_ULONG length) {
    const std::string_view typed(reinterpret_cast<const char*>(pin), pin != nullptr ? length : 0);
    return ServeSession(handle, {"C_Login", {{"user", user}, {"pin", typed}, {"pinLength", length}}},
                        [&](FakeToken& token, auto& session) { return token.Login(session, user, typed); });
}

CK_RV C_FindObjectsInit(CK_SESSION_HANDLE handle, CK_ATTRIBUTE* wanted, CK_ULONG count) {
    const Attributes attributes(wanted, count);
    return ServeSession(
        handle, {"C_FindObjectsInit", {{"count", count}, {"template", attributes}}},
        [&](FakeToken& token, auto& session) { return token.FindObjectsInit(session, attributes); });
}

CK_RV C_FindObjects(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE* found, CK_ULONG max, CK_ULONG* count) {
    return ServeSession(
        handle, {"C_FindObjects", {{"max", max}, {"count", *count}}, {{"count", count}, {"object", found}}},
        [&](FakeToken& token, auto& session) {
            return token.FindObjects(session, {found, max}, *count);
        });
}

CK_RV C_FindObjectsFinal(CK_SESSION_HANDLE handle) {
    return ServeSession(handle, {"C_FindObjectsFinal", {}},
                        [](FakeToken& token, auto& session) { return token.FindObjectsFinal(session); });
}

CK_RV C_GetAttributeValue(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE object, CK_ATTRIBUTE* wanted,
                          CK_ULONG count) {
    return ServeSession(
        handle,
        {"C_GetAttributeValue",
         {{"object", object}, {"count", count}, {"template", Attributes(wanted, count)}},
         {{"CKA_VALUE", LengthOf(wanted, count, CKA_VALUE)}, {"CKA_ID", LengthOf(wanted, count, CKA_ID)}}},
        [&](FakeToken& token, auto& session) {
            return token.GetAttributeValue(session, object, {wanted, count});
        });
}

CK_RV C_SignInit(CK_SESSION_HANDLE handle, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) {
    return ServeSession(
        handle,
        {"C_SignInit",
         {{"mechanism", mechanism->mechanism},
          {"parameterIsNull", mechanism->pParameter == nullptr},
          {"parameterLength", mechanism->ulParameterLen},
          {"key", key}}},
        [&](FakeToken& token, auto& session) { return token.SignInit(session, mechanism->mechanism, key); });
}

CK_RV C_Sign(CK_SESSION_HANDLE handle, CK_BYTE* bytes, CK_ULONG size, CK_BYTE* signature, CK_ULONG* length) {
    const std::span<const CK_BYTE> data(bytes, size);
    return ServeSession(
        handle,
        {"C_Sign",
         {{"data", data}, {"dataLength", size}, {"isNull", signature == nullptr}, {"length", *length}},
         {{"length", length}}},
        [&](FakeToken& token, auto& session) { return token.Sign(session, data, signature, *length); });
}

// There is nothing to end: no signature is given piece by piece.
CK_RV C_SignFinal(CK_SESSION_HANDLE handle, CK_BYTE* signature, CK_ULONG* length) {
    return ServeSession(handle, {"C_SignFinal", {{"isNull", signature == nullptr}, {"length", *length}}},
                        [](FakeToken&, auto&) { return CKR_OPERATION_NOT_INITIALIZED; });
}

// The driver calls these too; the host does not.

CK_RV C_GetInfo(CK_INFO* info) {
    *info = {{2, 40}, {}, 0, {}, {1, 0}};
    return CKR_OK;
}

// The reader stays when the token is pulled.
CK_RV C_GetSlotInfo(CK_SLOT_ID, CK_SLOT_INFO* info) {
    *info = {{}, {}, TheToken().SlotFlags(), {}, {}};
    return CKR_OK;
}

CK_RV C_GetTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO* info) { return TheToken().GetTokenInfo(slot, *info); }

CK_RV C_GetMechanismList(CK_SLOT_ID, CK_MECHANISM_TYPE* list, CK_ULONG* count) {
    return AnswerList(TheToken().Mechanisms(), list, *count);
}

CK_RV C_GetMechanismInfo(CK_SLOT_ID, CK_MECHANISM_TYPE, CK_MECHANISM_INFO* info) {
    *info = {2048, 2048, CKF_SIGN};
    return CKR_OK;
}

CK_RV C_CloseSession(CK_SESSION_HANDLE handle) {
    return TheToken().InSession(handle, [&](auto&) { return TheToken().CloseSession(handle); });
}

// Weak: a fake may have its own.
[[gnu::weak]] CK_RV C_GetFunctionList(CK_FUNCTION_LIST** list) {
    static CK_FUNCTION_LIST functions = [] {
        CK_FUNCTION_LIST all{};
        all.version = {2, 40};
        all.C_Initialize = C_Initialize;
        all.C_Finalize = C_Finalize;
        all.C_GetInfo = C_GetInfo;
        all.C_GetSlotList = C_GetSlotList;
        all.C_GetSlotInfo = C_GetSlotInfo;
        all.C_GetTokenInfo = C_GetTokenInfo;
        all.C_GetMechanismList = C_GetMechanismList;
        all.C_GetMechanismInfo = C_GetMechanismInfo;
        all.C_OpenSession = C_OpenSession;
        all.C_CloseSession = C_CloseSession;
        all.C_Login = C_Login;
        all.C_GetAttributeValue = C_GetAttributeValue;
        all.C_FindObjectsInit = C_FindObjectsInit;
        all.C_FindObjects = C_FindObjects;
        all.C_FindObjectsFinal = C_FindObjectsFinal;
        all.C_SignInit = C_SignInit;
        all.C_Sign = C_Sign;
        return all;
    }();
    *list = &functions;
    return CKR_OK;
}
