#include "FakeToken.h"

#include <unistd.h>

struct HangsAtLoad : FakeToken {
    CK_RV Initialize() override {
        for (;;)
            pause();
    }
};

FAKE_TOKEN(HangsAtLoad)
