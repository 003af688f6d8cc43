#include "FakeToken.h"

struct FailsOnceToFindAfterAPull : FakeToken {
    CK_RV FindObjects(Session& session, std::span<CK_OBJECT_HANDLE> found, CK_ULONG& count) override {
        const CK_RV answer = FakeToken::FindObjects(session, found, count);
        const bool fails = answer == CKR_OK && pulls > 0 && !std::exchange(hasFailed, true);
        return fails ? CKR_DEVICE_ERROR : answer;
    }
    bool hasFailed = false;
};

FAKE_TOKEN(FailsOnceToFindAfterAPull)
