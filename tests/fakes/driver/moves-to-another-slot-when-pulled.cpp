#include "FakeToken.h"

struct MovesToAnotherSlotWhenPulled : FakeToken {
    std::vector<CK_SLOT_ID> Slots() override {
        return present ? std::vector<CK_SLOT_ID>{7 + pulls} : std::vector<CK_SLOT_ID>{};
    }
};

FAKE_TOKEN(MovesToAnotherSlotWhenPulled)
