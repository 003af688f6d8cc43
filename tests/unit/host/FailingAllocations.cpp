#include "FailingAllocations.h"

#include <dlfcn.h>

#include <cstdlib>
#include <cstring>
#include <new>

namespace {

std::size_t toCome = 0; // allocations up to the one that fails, with it
bool happened = false;

/// Whether this allocation is the one.
bool Fails() {
    if (toCome == 0 || --toCome > 0)
        return false;
    happened = true;
    return true;
}

/// The scripted module's own allocations do not count: its JSON library allocates in destructors.
bool IsInFakeModule(const void* code) {
    Dl_info module{};
    return dladdr(code, &module) && std::strstr(module.dli_fname, "fake-pkcs11");
}

} // namespace

FailingAllocation::FailingAllocation(std::size_t n) {
    toCome = n;
    happened = false;
}

FailingAllocation::~FailingAllocation() { Stop(); }

void FailingAllocation::Stop() { toCome = 0; }

bool FailingAllocation::Happened() { return happened; }

void* operator new(std::size_t size) {
    const bool counts = toCome > 0 && !IsInFakeModule(__builtin_return_address(0));
    void* const memory = counts && Fails() ? nullptr : std::malloc(size > 0 ? size : 1);
    if (!memory)
        throw std::bad_alloc();
    return memory;
}

// The sanitizer has one of its own, which operator delete here could not give back.
void* operator new(std::size_t size, const std::nothrow_t& /*unused*/) noexcept {
    try {
        return operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
