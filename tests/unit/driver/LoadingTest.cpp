#include "DriverFixture.h"

#include <sys/wait.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <set>

namespace {

class LoadingTest : public DriverFixture {
protected:
    /// The driver works with the one good module, whatever the others do.
    void ExpectTheGoodModuleOnly() {
        Start();
        EXPECT_EQ(Slots().size(), 1U);
        OpenFirstToken();
        EXPECT_EQ(ListCertificates().size(), 1U);
    }

    void AddGoodModule() { AddFake("works"); }

    void AddBadModule(const std::string& name) {
        home.AddModule(name, std::string(QM_DRIVER_FAKES) + "/" + name + ".so");
    }
};

std::set<std::string> TemporaryViews() {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::temp_directory_path()))
        if (entry.path().filename().string().starts_with("quillmark-modules-"))
            names.insert(entry.path());
    return names;
}

} // namespace

TEST_F(LoadingTest, NoModules_IsNoErrorAndNoSlots) {
    Start();
    EXPECT_TRUE(Slots().empty());
}

struct UselessModule {
    const char* name;
    const char* file;
    const char* more = "";
};

void PrintTo(const UselessModule& it, std::ostream* out) { *out << it.name; }

class BesideAGoodModule : public LoadingTest, public testing::WithParamInterface<UselessModule> {};

TEST_P(BesideAGoodModule, IsNotUsed) {
    AddGoodModule();
    home.AddModule("useless", GetParam().file, GetParam().more);
    ExpectTheGoodModuleOnly();
}

INSTANTIATE_TEST_SUITE_P(
    , BesideAGoodModule,
    testing::Values(UselessModule{"OneThatFailsToInitialise", QM_DRIVER_FAKES "/fails-at-load.so"},
                    UselessModule{"OneThatIsNotThere", QM_DRIVER_FAKES "/no-such-module.so"},
                    UselessModule{"OneThatIsNoPkcs11Module", "libc.so.6"},
                    UselessModule{"TheDriverItself", QM_DRIVER},
                    UselessModule{"OneDisabledForTheDriver", QM_DRIVER_FAKES "/is-hardware.so",
                                  "disable-in: QMTokenDriver\n"},
                    UselessModule{"OneEnabledForOthersOnly", QM_DRIVER_FAKES "/is-hardware.so",
                                  "enable-in: some-other-program\n"},
                    UselessModule{"OneThatCrashes", QM_DRIVER_FAKES "/crashes-at-load.so"}),
    [](const auto& it) { return it.param.name; });

TEST_F(LoadingTest, WithATemporaryFolderThatCannotBeWritten_AModuleThatCrashesIsSkippedAllTheSame) {
    const ScopedVariable temporary("TMPDIR", "/proc");
    const ScopedVariable runtime("XDG_RUNTIME_DIR", home.Folder());
    AddGoodModule();
    AddBadModule("crashes-at-load");
    ExpectTheGoodModuleOnly();
}

TEST_F(LoadingTest, WithNoFolderToWriteTo_AModuleThatCrashesIsNoError) {
    const NoFolderToWriteTo nowhere;
    AddGoodModule();
    AddBadModule("crashes-at-load");
    Start();
    EXPECT_TRUE(Slots().empty());
}

TEST_F(LoadingTest, WithNoFolderToWriteTo_GoodModulesAreUsed) {
    const NoFolderToWriteTo nowhere;
    AddGoodModule();
    ExpectTheGoodModuleOnly();
}

TEST_F(LoadingTest, ModulesThatHang_AreSkippedWithinTheTimeLimit) {
    const std::set<std::string> before = TemporaryViews();
    const auto begin = std::chrono::steady_clock::now();
    AddGoodModule();
    AddBadModule("hangs-at-load");
    AddBadModule("hangs-in-its-constructor");
    AddBadModule("hangs-in-its-function-list");
    ExpectTheGoodModuleOnly();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
    EXPECT_EQ(TemporaryViews(), before) << "folders left behind";

    ASSERT_EQ(Driver().Finalize(nullptr), CKR_OK); // it is known by now who hangs
    const auto again = std::chrono::steady_clock::now();
    ASSERT_EQ(Driver().Initialize(nullptr), CKR_OK);
    EXPECT_LT(std::chrono::steady_clock::now() - again, std::chrono::seconds(2));
    EXPECT_EQ(Slots().size(), 1U);
}

TEST_F(LoadingTest, LeavesNoChildBehind) {
    AddGoodModule();
    AddBadModule("crashes-at-load");
    Start();
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}
