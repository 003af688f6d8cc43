#include "FakeToken.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

/// It stays in the process when p11-kit lets go of it, so that its handler is called at the very end.
struct WritesToStdoutAtExit : FakeToken {
    CK_RV Initialize() override {
        Dl_info self{};
        dladdr(reinterpret_cast<void*>(&MakeFakeToken), &self);
        dlopen(self.dli_fname, RTLD_NOW | RTLD_NODELETE);
        std::atexit([] { std::puts("module: goodbye"); });
        return CKR_OK;
    }
};

FAKE_TOKEN(WritesToStdoutAtExit)
