// The driver cannot be loaded, and the reason is told only when it is asked for a second time.

#include <dlfcn.h>

#include <cstring>

namespace {

int asked = -1; // how often for the reason; -1 before the driver was asked for

} // namespace

extern "C" void* dlopen(const char* file, int mode) noexcept {
    if (file && std::strstr(file, "QMTokenDriver.so")) {
        asked = 0;
        return nullptr;
    }
    static const auto next = reinterpret_cast<void* (*)(const char*, int)>(dlsym(RTLD_NEXT, "dlopen"));
    return next(file, mode);
}

extern "C" char* dlerror() noexcept {
    static char reason[] = "a late reason";
    if (asked >= 0)
        return asked++ == 0 ? nullptr : reason;
    static const auto next = reinterpret_cast<char* (*)()>(dlsym(RTLD_NEXT, "dlerror"));
    return next();
}
