#include "FakeToken.h"

#include <sys/time.h>
#include <unistd.h>

#include <csignal>

/// By its timer, at any time from its start to its end.
struct WritesToStdoutFromASignalHandler : FakeToken {
    CK_RV Initialize() override {
        struct sigaction action {};
        action.sa_handler = [](int) {
            [[maybe_unused]] const auto n = write(STDOUT_FILENO, "module: tick\n", 13);
        };
        action.sa_flags = SA_RESTART;
        sigaction(SIGALRM, &action, nullptr);
        return SetTimer(1000);
    }
    CK_RV Finalize() override { return SetTimer(0); }

    static CK_RV SetTimer(suseconds_t microseconds) {
        const itimerval timer{{0, microseconds}, {0, microseconds}};
        return setitimer(ITIMER_REAL, &timer, nullptr) == 0 ? CKR_OK : CKR_GENERAL_ERROR;
    }
};

FAKE_TOKEN(WritesToStdoutFromASignalHandler)
