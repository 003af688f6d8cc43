#include "Pinentry.h"
#include "DriverFixture.h"
#include "ScriptedPinentry.h"

#include <sys/resource.h>

// A pinentry that hangs holds nobody for much longer than a user may take.

namespace {

using namespace std::chrono_literals;
using namespace tokendriver;

struct Hanging {
    const char* name;
    const char* commands; ///< after its greeting
};

void PrintTo(const Hanging& it, std::ostream* out) { *out << it.name; }

class HangingPinentryTest : public DriverFixture, public testing::WithParamInterface<Hanging> {};

} // namespace

TEST_P(HangingPinentryTest, IsGivenUpAtOneLimitForAllThatIsSaidToIt) {
    const ScriptedPinentry pinentry(home);
    pinentry.Behave(GetParam().commands);
    const auto begun = std::chrono::steady_clock::now();
    KeptPin pin;
    EXPECT_EQ(AskByPinentry(SeenToken{}, pin, 1s), CKR_USER_NOT_LOGGED_IN);
    EXPECT_FALSE(pin.IsKept());
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 20s);
}

TEST_F(DriverFixture, APinentryForWhichNoDescriptorIsLeft_IsGivenUpAtOnce) {
    const ScriptedPinentry pinentry(home);
    rlimit usual{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &usual), 0);
    const rlimit none{3, usual.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const auto begun = std::chrono::steady_clock::now();
    KeptPin pin;
    EXPECT_NE(AskByPinentry(SeenToken{}, pin, 60s), CKR_OK);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 30s);
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &usual), 0);
}

INSTANTIATE_TEST_SUITE_P(, HangingPinentryTest,
                         testing::Values(Hanging{"Silent", "exec sleep 60\n"},
                                         Hanging{"Commenting",
                                                 "while echo '# still here'; do sleep 0.5; done\n"},
                                         Hanging{"Dribbling", "while printf x; do sleep 0.5; done\n"}),
                         [](const auto& it) { return std::string(it.param.name); });
