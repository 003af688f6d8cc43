#include "FakeToken.h"

struct PulledBetweenSignInitAndSign : FakeToken {
    CK_RV SignInit(Session& session, CK_MECHANISM_TYPE mechanism, CK_OBJECT_HANDLE key) override {
        const CK_RV answer = FakeToken::SignInit(session, mechanism, key);
        if (answer == CKR_OK && !std::exchange(wasPulled, true)) {
            Pull();
            PutBack();
        }
        return answer;
    }
    bool wasPulled = false;
};

FAKE_TOKEN(PulledBetweenSignInitAndSign)
