#pragma once

#include <cstddef>

/// While it lives, the n-th allocation with operator new from its construction on fails, once.
class FailingAllocation {
public:
    /// Counted from 1. With 0 none fails.
    explicit FailingAllocation(std::size_t n);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    /// From now on none fails any more.
    static void Stop();

    /// Whether it has come to that.
    static bool Happened();
};
