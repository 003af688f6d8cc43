// The PKCS#11 face of a fake token: C_GetFunctionList and the functions that the driver calls. The others are
// null.

#include "FakeToken.h"

#include <algorithm>

namespace {

std::unique_ptr<FakeToken>& Slot() {
    static std::unique_ptr<FakeToken> token = MakeFakeToken();
    return token;
}

FakeToken& TheToken() { return *Slot(); }

template <class Number>
CK_RV AnswerList(const std::vector<Number>& all, Number* list, CK_ULONG& count) {
    const CK_ULONG capacity = count;
    count = all.size();
    if (list == nullptr)
        return CKR_OK;
    if (capacity < count)
        return CKR_BUFFER_TOO_SMALL;
    std::copy(all.begin(), all.end(), list);
    return CKR_OK;
}

bool HasSlot(CK_SLOT_ID slot) {
    const std::vector<CK_SLOT_ID> slots = TheToken().Slots();
    return std::find(slots.begin(), slots.end(), slot) != slots.end();
}

CK_RV Initialize(void*) { return TheToken().Initialize(); }
CK_RV Finalize(void*) { return TheToken().Finalize(); }

CK_RV GetInfo(CK_INFO* info) {
    *info = {{2, 40}, {}, 0, {}, {1, 0}};
    return CKR_OK;
}

CK_RV GetSlotList(CK_BBOOL, CK_SLOT_ID* slots, CK_ULONG* count) {
    ++TheToken().listings;
    return AnswerList(TheToken().Slots(), slots, *count);
}

// The reader stays when the token is pulled.
CK_RV GetSlotInfo(CK_SLOT_ID, CK_SLOT_INFO* info) {
    *info = {{}, {}, TheToken().SlotFlags(), {}, {}};
    return CKR_OK;
}

CK_RV GetTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO* info) {
    return HasSlot(slot) ? TheToken().GetTokenInfo(*info) : CKR_TOKEN_NOT_PRESENT;
}

CK_RV GetMechanismList(CK_SLOT_ID, CK_MECHANISM_TYPE* list, CK_ULONG* count) {
    return AnswerList(TheToken().Mechanisms(), list, *count);
}

CK_RV GetMechanismInfo(CK_SLOT_ID, CK_MECHANISM_TYPE, CK_MECHANISM_INFO* info) {
    *info = {2048, 2048, CKF_SIGN};
    return CKR_OK;
}

CK_RV OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, void*, CK_NOTIFY, CK_SESSION_HANDLE* session) {
    TheToken().openedSlot = slot;
    return TheToken().OpenSession(flags, *session);
}

CK_RV CloseSession(CK_SESSION_HANDLE session) { return TheToken().CloseSession(session); }

CK_RV Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_UTF8CHAR* pin, CK_ULONG length) {
    return TheToken().Login(session, user, {reinterpret_cast<const char*>(pin), length});
}

CK_RV GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE* wanted,
                        CK_ULONG count) {
    return TheToken().GetAttributeValue(session, object, {wanted, count});
}

CK_RV FindObjectsInit(CK_SESSION_HANDLE session, CK_ATTRIBUTE* wanted, CK_ULONG count) {
    return TheToken().FindObjectsInit(session, {wanted, count});
}

CK_RV FindObjects(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE* found, CK_ULONG most, CK_ULONG* count) {
    return TheToken().FindObjects(session, {found, most}, *count);
}

CK_RV FindObjectsFinal(CK_SESSION_HANDLE session) { return TheToken().FindObjectsFinal(session); }

CK_RV SignInit(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) {
    return TheToken().SignInit(session, mechanism->mechanism, key);
}

CK_RV Sign(CK_SESSION_HANDLE session, CK_BYTE* data, CK_ULONG length, CK_BYTE* signature,
           CK_ULONG* signatureLength) {
    return TheToken().Sign(session, {data, length}, signature, *signatureLength);
}

CK_FUNCTION_LIST MakeFunctionList() {
    CK_FUNCTION_LIST list{};
    list.version = {2, 40};
    list.C_Initialize = Initialize;
    list.C_Finalize = Finalize;
    list.C_GetInfo = GetInfo;
    list.C_GetSlotList = GetSlotList;
    list.C_GetSlotInfo = GetSlotInfo;
    list.C_GetTokenInfo = GetTokenInfo;
    list.C_GetMechanismList = GetMechanismList;
    list.C_GetMechanismInfo = GetMechanismInfo;
    list.C_OpenSession = OpenSession;
    list.C_CloseSession = CloseSession;
    list.C_Login = Login;
    list.C_GetAttributeValue = GetAttributeValue;
    list.C_FindObjectsInit = FindObjectsInit;
    list.C_FindObjects = FindObjects;
    list.C_FindObjectsFinal = FindObjectsFinal;
    list.C_SignInit = SignInit;
    list.C_Sign = Sign;
    return list;
}

} // namespace

extern "C" CK_RV C_GetFunctionList(CK_FUNCTION_LIST** list) {
    static CK_FUNCTION_LIST functions = MakeFunctionList();
    *list = &functions;
    return CKR_OK;
}

extern "C" FakeTokenState* NewFakeToken() {
    Slot() = MakeFakeToken();
    return Slot().get();
}
