#pragma once

#include <p11-kit/pkcs11.h>

#include <cstddef>
#include <span>
#include <utility>

namespace tokendriver {

/// The user's PIN, kept for logins that the host does not know of: in a page of its own that is locked in
/// memory, left out of core dumps and of forked children, and wiped before it is given back.
class KeptPin {
public:
    KeptPin() = default;
    ~KeptPin() { Forget(); }
    KeptPin(const KeptPin&) = delete;
    KeptPin& operator=(const KeptPin&) = delete;

    /// Keeps a copy of `pin`, in place of any kept before. When the page cannot be locked (RLIMIT_MEMLOCK) or
    /// the PIN is longer than a page, nothing is kept.
    void Keep(std::span<const CK_UTF8CHAR> pin);

    /// Takes the PIN out of `other`, if there is one.
    KeptPin(KeptPin&& other) noexcept
        : page_(std::exchange(other.page_, nullptr)), length_(std::exchange(other.length_, 0)) {}

    /// Wipes it.
    void Forget();

    bool IsKept() const { return page_ != nullptr; }

    /// The kept PIN; empty when none is. Modules take it as a pointer to non-const, though they only read it.
    std::span<CK_UTF8CHAR> Text() const { return {page_, length_}; }

private:
    CK_UTF8CHAR* page_ = nullptr;
    std::size_t length_ = 0;
};

/// No core dump of this process, so that no PIN is written to a disk: neither the driver's nor the host's.
void SwitchOffCoreDumps();

} // namespace tokendriver
