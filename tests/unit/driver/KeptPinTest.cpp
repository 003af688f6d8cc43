#include "KeptPin.h"

#include <gtest/gtest.h>

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

using tokendriver::KeptPin;

namespace {

const std::string kPin = "13-secret-57";

std::span<const CK_UTF8CHAR> Pin() {
    return {reinterpret_cast<const CK_UTF8CHAR*>(kPin.data()), kPin.size()};
}

/// What the kernel says about the mapping that `address` lies in.
std::string MappingOf(const void* address) {
    std::ifstream maps("/proc/self/smaps");
    std::ostringstream begin;
    begin << std::hex << reinterpret_cast<std::uintptr_t>(address);
    std::string line;
    std::string mapping;
    while (std::getline(maps, line)) {
        const bool isHeader = line.find('-') < line.find(' ');
        if (isHeader && !mapping.empty())
            break;
        if (!mapping.empty() || line.starts_with(begin.str() + "-"))
            mapping += line + '\n';
    }
    return mapping;
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
    const std::string mapping = MappingOf(pin.Text().data());
    ASSERT_NE(mapping.find("VmFlags:"), std::string::npos) << mapping;
    const std::string flags = mapping.substr(mapping.find("VmFlags:"));
    for (const char* flag : {" lo", " dd", " dc"}) // locked, not dumped, not copied on fork (proc(5))
        EXPECT_NE(flags.find(flag), std::string::npos) << flag << " in " << flags;
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
