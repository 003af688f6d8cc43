#include "DriverFixture.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <cstdio>
#include <set>
#include <thread>

namespace {

using Names = std::set<std::string>;

/// Every function that the host takes from the module by name: Resolve<...>(handle, "C_...").
Names ResolvedByTheHost() {
    const std::string source = ReadFile(QM_HOST_TOKEN_MANAGER);
    const std::string before = ">(handle, \"";
    Names names;
    for (std::size_t at = source.find(before); at != std::string::npos; at = source.find(before, at)) {
        at += before.size();
        names.insert(source.substr(at, source.find('"', at) - at));
    }
    return names;
}

Names ExportedByTheDriver() {
    const std::string command = std::string("nm -D --defined-only '") + QM_DRIVER + "'";
    const std::unique_ptr<FILE, int (*)(FILE*)> output(popen(command.c_str(), "r"), pclose);
    Names names;
    char name[256];
    while (fscanf(output.get(), "%*s %*s %255s", name) == 1)
        names.insert(name);
    return names;
}

using EntryPointsTest = DriverFixture;

} // namespace

TEST(Exports, AreWhatTheHostResolvesAndNothingElse) {
    const Names resolved = ResolvedByTheHost();
    ASSERT_GE(resolved.size(), 12U) << "the host's list was not found in its source";
    EXPECT_EQ(ExportedByTheDriver(), resolved);
}

TEST(Loading, SwitchesCoreDumpsOff) {
    ASSERT_EQ(prctl(PR_SET_DUMPABLE, 1), 0);
    const Library driver = OpenLibrary(QM_DRIVER);
    EXPECT_EQ(prctl(PR_GET_DUMPABLE), 0);
}

TEST_F(EntryPointsTest, BeforeInitialize_EverythingSaysSo) {
    StartFake("works");
    ASSERT_EQ(Driver().Finalize(nullptr), CKR_OK);
    CK_ULONG count = 0;
    CK_MECHANISM mechanism{CKM_RSA_PKCS, nullptr, 0};
    EXPECT_EQ(Driver().Finalize(nullptr), CKR_CRYPTOKI_NOT_INITIALIZED);
    EXPECT_EQ(Driver().GetSlotList(CK_TRUE, nullptr, &count), CKR_CRYPTOKI_NOT_INITIALIZED);
    EXPECT_EQ(Driver().OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &session),
              CKR_CRYPTOKI_NOT_INITIALIZED);
    EXPECT_EQ(Driver().Login(1, CKU_USER, nullptr, 0), CKR_CRYPTOKI_NOT_INITIALIZED);
    EXPECT_EQ(Driver().GetAttributeValue(1, 1, nullptr, 0), CKR_CRYPTOKI_NOT_INITIALIZED);
    EXPECT_EQ(Driver().FindObjectsInit(1, nullptr, 0), CKR_CRYPTOKI_NOT_INITIALIZED);
    EXPECT_EQ(Driver().FindObjects(1, nullptr, 0, &count), CKR_CRYPTOKI_NOT_INITIALIZED);
    EXPECT_EQ(Driver().FindObjectsFinal(1), CKR_CRYPTOKI_NOT_INITIALIZED);
    EXPECT_EQ(Driver().SignInit(1, &mechanism, 1), CKR_CRYPTOKI_NOT_INITIALIZED);
    EXPECT_EQ(Driver().Sign(1, nullptr, 0, nullptr, &count), CKR_CRYPTOKI_NOT_INITIALIZED);
    EXPECT_EQ(Driver().SignFinal(1, nullptr, &count), CKR_CRYPTOKI_NOT_INITIALIZED);
}

TEST_F(EntryPointsTest, InitializeTwice_IsRefused) {
    StartFake("works");
    EXPECT_EQ(Driver().Initialize(nullptr), CKR_CRYPTOKI_ALREADY_INITIALIZED);
}

TEST_F(EntryPointsTest, FinalizeThenInitialize_BeginsAnew) {
    OpenFake("works");
    ASSERT_EQ(Driver().Finalize(nullptr), CKR_OK);
    ASSERT_EQ(Driver().Initialize(nullptr), CKR_OK);
    EXPECT_EQ(Driver().FindObjectsInit(session, nullptr, 0), CKR_SESSION_HANDLE_INVALID);
    OpenFirstToken();
    EXPECT_EQ(ListCertificates().size(), 1U);
}

TEST_F(EntryPointsTest, InitializeArguments_AreHeldAgainstTheStandard) {
    StartFake("works");
    ASSERT_EQ(Driver().Finalize(nullptr), CKR_OK);
    CK_C_INITIALIZE_ARGS arguments{};
    arguments.pReserved = &arguments;
    EXPECT_EQ(Driver().Initialize(&arguments), CKR_ARGUMENTS_BAD);
    arguments = {};
    arguments.flags = CKF_OS_LOCKING_OK;
    EXPECT_EQ(Driver().Initialize(&arguments), CKR_CANT_LOCK);
    arguments = {};
    arguments.CreateMutex = [](void**) -> CK_RV { return CKR_OK; };
    arguments.DestroyMutex = arguments.LockMutex = [](void*) -> CK_RV { return CKR_OK; };
    EXPECT_EQ(Driver().Initialize(&arguments), CKR_ARGUMENTS_BAD) << "three of the four";
    arguments.flags = CKF_OS_LOCKING_OK;
    EXPECT_EQ(Driver().Initialize(&arguments), CKR_ARGUMENTS_BAD) << "three of the four";
    arguments.UnlockMutex = arguments.LockMutex;
    EXPECT_EQ(Driver().Initialize(&arguments), CKR_CANT_LOCK);
    arguments = {};
    EXPECT_EQ(Driver().Initialize(&arguments), CKR_OK);
    EXPECT_EQ(Driver().Finalize(&arguments), CKR_ARGUMENTS_BAD);
}

TEST_F(EntryPointsTest, NullWhereAnAnswerGoes_IsRefused) {
    GetFakeReadyToSign("works");
    CK_ULONG length = 0;
    CK_MECHANISM mechanism{CKM_SHA256_RSA_PKCS, nullptr, 0};
    EXPECT_EQ(Driver().GetSlotList(CK_TRUE, nullptr, nullptr), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(Driver().OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, nullptr), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(Driver().FindObjectsInit(session, nullptr, 1), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(Driver().GetAttributeValue(session, certificates[0].handle, nullptr, 1), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(Driver().SignInit(session, nullptr, key), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(Driver().SignInit(session, &mechanism, key), CKR_OK);
    EXPECT_EQ(Driver().Sign(session, nullptr, 1, nullptr, &length), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(Driver().Sign(session, nullptr, 0, nullptr, nullptr), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(Driver().Login(session, CKU_USER, nullptr, 4), CKR_ARGUMENTS_BAD);
}

TEST_F(EntryPointsTest, ASecondThreadInside_IsRefusedAndTouchesNothing) {
    const FakeTokenState& token = StartFake("slow-to-list");
    const unsigned before = token.listings;
    CK_RV first = CKR_GENERAL_ERROR;
    std::thread slow([&] {
        CK_ULONG count = 0;
        first = Driver().GetSlotList(CK_TRUE, nullptr, &count);
    });
    while (token.listings == before) // the slow one is inside
        std::this_thread::yield();
    CK_ULONG count = 77;
    EXPECT_EQ(Driver().GetSlotList(CK_TRUE, nullptr, &count), CKR_FUNCTION_FAILED);
    EXPECT_EQ(count, 77U);
    slow.join();
    EXPECT_EQ(first, CKR_OK);
    EXPECT_EQ(Slots().size(), 1U);
}
