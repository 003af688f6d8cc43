#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the process unless `holds`; the fuzzer takes that for a finding. `rule` says what should have held.
inline void Require(bool holds, const char* rule) {
    if (holds)
        return;
    std::fprintf(stderr, "Violated: %s\n", rule);
    std::abort();
}
