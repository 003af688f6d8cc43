#include "FakeToken.h"

FAKE_TOKEN(FakeToken)
