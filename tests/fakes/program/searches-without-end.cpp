// A PKCS#11 module whose search for certificates finds one more for ever.

#include <p11-kit/pkcs11.h>

#define ENTRY_POINT extern "C" __attribute__((visibility("default"))) CK_RV

ENTRY_POINT C_Initialize(void*) { return CKR_OK; }

ENTRY_POINT C_GetSlotList(CK_BBOOL, CK_SLOT_ID*, CK_ULONG* count) {
    *count = 1;
    return CKR_OK;
}

ENTRY_POINT C_OpenSession(CK_SLOT_ID, CK_FLAGS, void*, CK_NOTIFY, CK_SESSION_HANDLE*) { return CKR_OK; }

ENTRY_POINT C_FindObjectsInit(CK_SESSION_HANDLE, CK_ATTRIBUTE*, CK_ULONG) { return CKR_OK; }

ENTRY_POINT C_FindObjects(CK_SESSION_HANDLE, CK_OBJECT_HANDLE*, CK_ULONG, CK_ULONG* count) {
    *count = 1;
    return CKR_OK;
}

ENTRY_POINT C_GetAttributeValue(CK_SESSION_HANDLE, CK_OBJECT_HANDLE, CK_ATTRIBUTE*, CK_ULONG) {
    return CKR_OK;
}
