#include "FakeToken.h"

struct ListsAMechanismItRefuses : FakeToken {
    CK_RV SignInit(CK_SESSION_HANDLE session, CK_MECHANISM_TYPE mechanism, CK_OBJECT_HANDLE key) override {
        return mechanism == CKM_RSA_PKCS ? FakeToken::SignInit(session, mechanism, key)
                                         : CKR_MECHANISM_INVALID;
    }
};

FAKE_TOKEN(ListsAMechanismItRefuses)
