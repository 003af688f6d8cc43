#include "KeptPin.h"

#include "support/Memory.h"

#include <gtest/gtest.h>

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

using tokendriver::KeptPin;

namespace {

const std::string kPin = "13-secret-57";

std::span<const CK_UTF8CHAR> Pin() {
    return {reinterpret_cast<const CK_UTF8CHAR*>(kPin.data()), kPin.size()};
}

} // namespace

TEST(KeptPin, KeepsTheLastOneUntilItIsForgotten) {
    KeptPin pin;
    EXPECT_FALSE(pin.IsKept());
    pin.Keep(Pin().first(3));
    pin.Keep(Pin());
    EXPECT_TRUE(std::equal(pin.Text().begin(), pin.Text().end(), Pin().begin(), Pin().end()));
    pin.Forget();
    EXPECT_FALSE(pin.IsKept());
    EXPECT_TRUE(pin.Text().empty());
}

TEST(KeptPin, IsLockedAndLeftOutOfDumpsAndForks) {
    KeptPin pin;
    pin.Keep(Pin());
    const std::string flags = MemoryFlagsOf(pin.Text().data());
    for (const char* flag : {" lo ", " dd ", " dc "}) // locked, not dumped, not copied on fork
        EXPECT_NE(flags.find(flag), std::string::npos) << flag << "in" << flags;
}

TEST(KeptPin, IsNotKeptInMemoryThatCannotBeLocked) {
    const pid_t child = fork(); // the limit can only be lowered
    if (child == 0) {
        const rlimit none{0, 0};
        KeptPin pin;
        if (setrlimit(RLIMIT_MEMLOCK, &none) != 0)
            _exit(2);
        pin.Keep(Pin());
        _exit(pin.IsKept() ? 1 : 0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST(KeptPin, ThatIsLongerThanAPageIsNotKept) {
    const std::string longPin(5000, '1');
    KeptPin pin;
    pin.Keep({reinterpret_cast<const CK_UTF8CHAR*>(longPin.data()), longPin.size()});
    EXPECT_FALSE(pin.IsKept());
}

TEST(CoreDumps, AreOffOnceSwitchedOff) {
    ASSERT_EQ(prctl(PR_SET_DUMPABLE, 1), 0);
    tokendriver::SwitchOffCoreDumps();
    EXPECT_EQ(prctl(PR_GET_DUMPABLE), 0);
}
