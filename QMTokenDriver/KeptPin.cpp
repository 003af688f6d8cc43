#include "KeptPin.h"

#include <openssl/crypto.h>

#include <sys/mman.h>
#include <sys/prctl.h>

#include <algorithm>

namespace tokendriver {

namespace {

/// Far longer than any PIN, and no more than a page on any machine.
constexpr std::size_t kPageBytes = 4096;

} // namespace

void KeptPin::Keep(std::span<const CK_UTF8CHAR> pin) {
    Forget();
    if (pin.empty() || pin.size() > kPageBytes)
        return;
    void* page = mmap(nullptr, kPageBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED)
        return;
    // mlock2 with no flags is mlock, but for the sanitizers, which make that one do nothing.
    if (mlock2(page, kPageBytes, 0) != 0 || madvise(page, kPageBytes, MADV_DONTDUMP) != 0 ||
        madvise(page, kPageBytes, MADV_DONTFORK) != 0) {
        munmap(page, kPageBytes);
        return;
    }
    page_ = static_cast<CK_UTF8CHAR*>(page);
    length_ = pin.size();
    std::copy(pin.begin(), pin.end(), page_);
}

void KeptPin::Forget() {
    if (page_ == nullptr)
        return;
    OPENSSL_cleanse(page_, kPageBytes);
    munmap(page_, kPageBytes);
    page_ = nullptr;
    length_ = 0;
}

// The limit on core files alone does not hold where the kernel pipes them to a crash handler; this does.
void SwitchOffCoreDumps() { prctl(PR_SET_DUMPABLE, 0); }

} // namespace tokendriver
