#include "FakeToken.h"

#include <iostream>

struct WritesToStdoutWhenItFinds : FakeToken {
    CK_RV FindObjects(Session& session, std::span<CK_OBJECT_HANDLE> found, CK_ULONG& count) override {
        std::cout << "module: finds" << std::endl;
        return FakeToken::FindObjects(session, found, count);
    }
};

FAKE_TOKEN(WritesToStdoutWhenItFinds)
