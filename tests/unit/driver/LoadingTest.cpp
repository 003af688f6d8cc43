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

TEST_F(LoadingTest, AModuleThatFailsToInitialise_IsSkipped) {
    AddGoodModule();
    AddBadModule("fails-at-load");
    ExpectTheGoodModuleOnly();
}

TEST_F(LoadingTest, AModuleThatIsNotThere_IsSkipped) {
    AddGoodModule();
    AddBadModule("no-such-module");
    ExpectTheGoodModuleOnly();
}

TEST_F(LoadingTest, AModuleThatIsNoPkcs11Module_IsSkipped) {
    AddGoodModule();
    home.AddModule("no-pkcs11", "libc.so.6");
    ExpectTheGoodModuleOnly();
}

TEST_F(LoadingTest, TheDriverItselfAsAModule_IsSkipped) {
    AddGoodModule();
    home.AddModule("driver", QM_DRIVER);
    ExpectTheGoodModuleOnly();
}

TEST_F(LoadingTest, AModuleDisabledForTheDriver_IsNotUsed) {
    AddGoodModule();
    AddFake("is-hardware", "disable-in: QMTokenDriver\n");
    ExpectTheGoodModuleOnly();
}

TEST_F(LoadingTest, AModuleEnabledForOthersOnly_IsNotUsed) {
    AddGoodModule();
    AddFake("is-hardware", "enable-in: some-other-program\n");
    ExpectTheGoodModuleOnly();
}

TEST_F(LoadingTest, AModuleThatCrashes_IsSkipped) {
    AddGoodModule();
    AddBadModule("crashes-at-load");
    ExpectTheGoodModuleOnly();
}

TEST_F(LoadingTest, WithATemporaryFolderThatCannotBeWritten_AModuleThatCrashesIsSkippedAllTheSame) {
    const ScopedVariable temporary("TMPDIR", "/proc");
    const ScopedVariable runtime("XDG_RUNTIME_DIR", home.Folder());
    AddGoodModule();
    AddBadModule("crashes-at-load");
    ExpectTheGoodModuleOnly();
}

TEST_F(LoadingTest, WithNoFolderToWriteTo_AModuleThatCrashesIsNoError) {
    const ScopedVariable temporary("TMPDIR", "/proc");
    const ScopedVariable runtime("XDG_RUNTIME_DIR", "/proc");
    AddGoodModule();
    AddBadModule("crashes-at-load");
    Start();
    EXPECT_TRUE(Slots().empty());
}

TEST_F(LoadingTest, WithNoFolderToWriteTo_GoodModulesAreUsed) {
    const ScopedVariable temporary("TMPDIR", "/proc");
    const ScopedVariable runtime("XDG_RUNTIME_DIR", "/proc");
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
