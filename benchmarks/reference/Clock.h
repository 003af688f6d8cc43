#pragma once

#include <ctime>

/// The monotonic clock, the same for all processes, in nanoseconds.
inline long long NowNanoseconds() {
    std::timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1'000'000'000LL + now.tv_nsec;
}
