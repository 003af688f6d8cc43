// No memory for blocks of 64 MiB and more.

#include <cstddef>

extern "C" void* __libc_calloc(std::size_t count, std::size_t size);

extern "C" void* calloc(std::size_t count, std::size_t size) noexcept {
    return count * size < (std::size_t{64} << 20) ? __libc_calloc(count, size) : nullptr;
}
