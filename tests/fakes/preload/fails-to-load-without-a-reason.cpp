// The driver cannot be loaded, and nobody says why.

#include <dlfcn.h>

#include <cstring>

extern "C" void* dlopen(const char* file, int mode) noexcept {
    if (file && std::strstr(file, "QMTokenDriver.so"))
        return nullptr;
    static const auto next = reinterpret_cast<void* (*)(const char*, int)>(dlsym(RTLD_NEXT, "dlopen"));
    return next(file, mode);
}
