#include "FakeToken.h"

struct TwoKeysWithOneId : FakeToken {
    std::vector<Object> MakeObjects() override {
        std::vector<Object> objects = FakeToken::MakeObjects();
        objects.push_back(objects.back());
        return objects;
    }
};

FAKE_TOKEN(TwoKeysWithOneId)
