#include "FakeToken.h"

struct ReportsTooManyObjects : FakeToken {
    CK_RV FindObjects(Session& session, std::span<CK_OBJECT_HANDLE> found, CK_ULONG& count) override {
        const CK_RV answer = FakeToken::FindObjects(session, found, count);
        count = found.size() + 1;
        return answer;
    }
};

FAKE_TOKEN(ReportsTooManyObjects)
