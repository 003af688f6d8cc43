#include "FakeToken.h"

/// Three keys whose ids are the same up to the first zero byte, and one whose id is a zero byte.
struct IdsWithZeroBytes : FakeToken {
    std::vector<Object> MakeObjects() override {
        std::vector<Object> objects;
        for (const Bytes& id :
             {Bytes{0x41, 0x00}, Bytes{0x41, 0x00, 0x01}, Bytes{0x41, 0x00, 0x02}, Bytes{0x00}})
            for (Object& object : KeyPair(id))
                objects.push_back(std::move(object));
        return objects;
    }
};

FAKE_TOKEN(IdsWithZeroBytes)
