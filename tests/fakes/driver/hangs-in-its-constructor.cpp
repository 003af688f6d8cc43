#include "FakeToken.h"

#include <unistd.h>

[[gnu::constructor]] static void Hang() {
    for (;;)
        pause();
}

FAKE_TOKEN(FakeToken)
