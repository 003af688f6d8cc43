#include "FakeToken.h"

struct Holds1000Objects : FakeToken {
    std::vector<Object> MakeObjects() override {
        std::vector<Object> objects;
        for (unsigned i = 0; i < 500; ++i)
            for (Object& object : KeyPair({0x7f, static_cast<CK_BYTE>(i >> 8), static_cast<CK_BYTE>(i)}))
                objects.push_back(std::move(object));
        return objects;
    }
};

FAKE_TOKEN(Holds1000Objects)
