#include "FakeToken.h"

#include <unistd.h>

CK_RV C_GetFunctionList(CK_FUNCTION_LIST**) {
    for (;;)
        pause();
}

FAKE_TOKEN(FakeToken)
