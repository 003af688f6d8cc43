#include "FakeToken.h"

struct LabelWithAnEscape : FakeToken {
    LabelWithAnEscape() { label = "\x1b[31mRed"; }
};

FAKE_TOKEN(LabelWithAnEscape)
