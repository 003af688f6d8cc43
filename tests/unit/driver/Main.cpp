#include <gtest/gtest.h>

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>

namespace {

/// p11-kit reads no user's configuration in a process of root, and these tests bring such a configuration. So
/// root becomes another user. This one may still read a build folder wherever it is, below root's home too,
/// and so may the commands that the tests start: an ambient capability stays when another program is
/// executed.
bool StopBeingRoot() {
    constexpr uid_t kNobody = 65534;
    if (geteuid() != 0)
        return true;
    prctl(PR_SET_KEEPCAPS, 1);
    if (setresgid(kNobody, kNobody, kNobody) != 0 || setresuid(kNobody, kNobody, kNobody) != 0)
        return false;
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3]{};
    data[0].permitted = data[0].effective = data[0].inheritable = 1U << CAP_DAC_OVERRIDE;
    return syscall(SYS_capset, &header, data) == 0 &&
           prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, CAP_DAC_OVERRIDE, 0, 0) == 0;
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (!StopBeingRoot()) {
        perror("The tests cannot run as another user than root");
        return EXIT_FAILURE;
    }
    return RUN_ALL_TESTS();
}
