#include "FakeToken.h"

struct SearchesWithoutEnd : FakeToken {
    SearchesWithoutEnd() { strict = false; } // the host asks with numbers of four bytes
    std::vector<Object> MakeObjects() override { return {CertificateOf({}, {})}; }
    CK_RV FindObjects(Session& session, std::span<CK_OBJECT_HANDLE> found, CK_ULONG& count) override {
        session.search->push_back(session.search->front());
        return FakeToken::FindObjects(session, found, count);
    }
};

FAKE_TOKEN(SearchesWithoutEnd)
