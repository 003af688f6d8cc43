#include "FakeToken.h"

struct ListsAMechanismItRefuses : FakeToken {
    CK_RV SignInit(Session& session, CK_MECHANISM_TYPE mechanism, CK_OBJECT_HANDLE key) override {
        return mechanism == CKM_RSA_PKCS ? FakeToken::SignInit(session, mechanism, key)
                                         : CKR_MECHANISM_INVALID;
    }
};

FAKE_TOKEN(ListsAMechanismItRefuses)
