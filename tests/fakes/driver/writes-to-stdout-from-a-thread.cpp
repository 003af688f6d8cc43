#include "FakeToken.h"

#include <chrono>
#include <cstdio>
#include <thread>

struct WritesToStdoutFromAThread : FakeToken {
    CK_RV Initialize() override {
        writer = std::jthread([](const std::stop_token& end) {
            for (; !end.stop_requested(); std::this_thread::sleep_for(std::chrono::milliseconds(1))) {
                std::puts("module: still here");
                std::fflush(stdout);
            }
        });
        return CKR_OK;
    }
    CK_RV Finalize() override {
        writer = {};
        return CKR_OK;
    }

    std::jthread writer;
};

FAKE_TOKEN(WritesToStdoutFromAThread)
