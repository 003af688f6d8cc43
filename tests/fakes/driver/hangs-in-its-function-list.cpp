// No token at all: the module's first function never returns.

#include <p11-kit/pkcs11.h>

#include <unistd.h>

extern "C" CK_RV C_GetFunctionList(CK_FUNCTION_LIST**) {
    for (;;)
        pause();
}
