#include "FakeToken.h"

struct ReadOnlyToken : FakeToken {
    CK_RV OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, CK_SESSION_HANDLE& session) override {
        return (flags & CKF_RW_SESSION) != 0 ? CKR_TOKEN_WRITE_PROTECTED
                                             : FakeToken::OpenSession(slot, flags, session);
    }
};

FAKE_TOKEN(ReadOnlyToken)
