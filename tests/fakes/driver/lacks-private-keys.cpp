#include "FakeToken.h"

struct LacksPrivateKeys : FakeToken {
    std::vector<Object> MakeObjects() override { return {Certificate({0x01})}; }
};

FAKE_TOKEN(LacksPrivateKeys)
