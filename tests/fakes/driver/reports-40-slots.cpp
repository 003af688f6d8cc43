#include "FakeToken.h"

struct Reports40Slots : FakeToken {
    std::vector<CK_SLOT_ID> Slots() override {
        std::vector<CK_SLOT_ID> slots;
        for (CK_SLOT_ID slot = 0; slot < 40; ++slot)
            slots.push_back(1000 + 3 * slot);
        return slots;
    }
};

FAKE_TOKEN(Reports40Slots)
