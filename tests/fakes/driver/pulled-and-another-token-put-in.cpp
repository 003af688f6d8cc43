#include "FakeToken.h"

struct PulledAndAnotherTokenPutIn : FakeToken {
    CK_RV SignInit(Session& session, CK_MECHANISM_TYPE mechanism, CK_OBJECT_HANDLE key) override {
        const CK_RV answer = FakeToken::SignInit(session, mechanism, key);
        Pull();
        serialNumber = "0002";
        PutBack();
        return answer;
    }
};

FAKE_TOKEN(PulledAndAnotherTokenPutIn)
