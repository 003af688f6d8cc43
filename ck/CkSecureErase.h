#pragma once

#include <cstddef>
#include <string>

/// Overwrites `size` bytes so that no optimiser drops the write (OPENSSL_cleanse). `memory` may be null with
/// size 0.
void CkSecureErase(void* memory, std::size_t size);

/// Overwrites the whole capacity of `secret`, then empties it.
void CkSecureErase(std::string& secret);
