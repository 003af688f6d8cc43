#include "FakeToken.h"

struct ReportsAbsurdLengths : FakeToken {
    CK_RV GetAttributeValue(Session& session, CK_OBJECT_HANDLE object,
                            std::span<CK_ATTRIBUTE> wanted) override {
        const CK_RV answer = FakeToken::GetAttributeValue(session, object, wanted);
        for (CK_ATTRIBUTE& attribute : wanted)
            attribute.ulValueLen = CK_ULONG{1} << 60;
        return answer;
    }
};

FAKE_TOKEN(ReportsAbsurdLengths)
