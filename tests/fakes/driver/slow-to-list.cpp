#include "FakeToken.h"

#include <chrono>
#include <thread>

struct SlowToList : FakeToken {
    std::vector<CK_SLOT_ID> Slots() override {
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        return FakeToken::Slots();
    }
};

FAKE_TOKEN(SlowToList)
