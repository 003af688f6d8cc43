#include "CkSecureErase.h"

#include <openssl/crypto.h>

void CkSecureErase(void* memory, std::size_t size) {
    if (size > 0)
        OPENSSL_cleanse(memory, size);
}

void CkSecureErase(std::string& secret) {
    // The bytes between size and capacity hold what a longer content left there.
    secret.resize(secret.capacity());
    CkSecureErase(secret.data(), secret.size());
    secret.clear();
}
