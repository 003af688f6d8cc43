#include "FakeToken.h"

#include <cstdio>

struct WritesToStdoutWhenItSigns : FakeToken {
    CK_RV Sign(Session& session, std::span<const CK_BYTE> data, CK_BYTE* signature,
               CK_ULONG& length) override {
        std::printf("module: signs\n");
        return FakeToken::Sign(session, data, signature, length);
    }
};

FAKE_TOKEN(WritesToStdoutWhenItSigns)
