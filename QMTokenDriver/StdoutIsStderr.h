#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

namespace tokendriver {

/// As long as it lives, what is written to stdout goes to stderr. Modules are known to write there when they
/// start, end or see a token, and the host's stdout is the pipe to the browser: a single word would end the
/// conversation. Searches and signatures are left alone, since this would cost a tenth of a search.
class StdoutIsStderr {
public:
    StdoutIsStderr() : stdout_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0)) {
        std::fflush(stdout); // what was written before
        if (stdout_ >= 0)
            dup2(STDERR_FILENO, STDOUT_FILENO);
    }
    ~StdoutIsStderr() {
        if (stdout_ < 0)
            return;
        std::fflush(stdout);
        dup2(stdout_, STDOUT_FILENO);
        close(stdout_);
    }
    StdoutIsStderr(const StdoutIsStderr&) = delete;
    StdoutIsStderr& operator=(const StdoutIsStderr&) = delete;

private:
    int stdout_;
};

} // namespace tokendriver
