#include "DriverFixture.h"

#include "Driver.h"

#include <dlfcn.h>

#include <array>

// One token that two modules show is one token: it is listed once, and has one PIN.

namespace {

using namespace tokendriver;
using testing::HasSubstr;

class TwoModulesTest : public DriverFixture {
protected:
    TwoModulesTest() : state(AddFake("works")), library_(OpenLibrary(PathOf("works"))) {
        CK_FUNCTION_LIST* functions = nullptr;
        reinterpret_cast<CK_C_GetFunctionList>(dlsym(library_.get(), "C_GetFunctionList"))(&functions);
        modules = {{"one", "", functions}, {"another", "", functions}};
        functions->C_Initialize(nullptr);
    }
    ~TwoModulesTest() override { modules.back().functions->C_Finalize(nullptr); }

    static std::string PathOf(const std::string& fake) {
        return std::string(QM_DRIVER_FAKES) + "/" + fake + ".so";
    }

    /// The names of the modules through which the listed certificates are reached.
    std::vector<std::string> Listed() {
        catalogue.Read();
        std::vector<std::string> names;
        for (const tokendriver::ListedCertificate& listed : catalogue.Certificates())
            names.push_back(listed.token->Seen().backend->name);
        return names;
    }

    FakeTokenState& state;
    CK_FUNCTION_LIST blind{}; ///< outlives the sessions in it
    std::vector<Backend> modules;
    Catalogue catalogue{modules};

private:
    Library library_;
};

using Names = std::vector<std::string>;

} // namespace

TEST_F(TwoModulesTest, ATokenThatBothShow_IsListedOnceThroughTheFirst) {
    EXPECT_EQ(Listed(), Names{"one"});
    EXPECT_EQ(catalogue.Tokens().size(), 1U) << "its PIN is tried at once";
    EXPECT_THAT(Log(), HasSubstr("\"Fake Token\" (serial number 0001) of the module another is left out"));
}

TEST_F(TwoModulesTest, AfterAPull_ItIsStillThroughTheFirst) {
    Listed();
    const std::string id = catalogue.Certificates().front().idText;
    state.Pull();
    state.PutBack();
    EXPECT_EQ(Listed(), Names{"one"});
    EXPECT_EQ(catalogue.Certificates().front().idText, id);
}

TEST_F(TwoModulesTest, WithoutASerialNumber_NoTwoTokensAreTakenForOne) {
    state.serialNumber = "";
    EXPECT_EQ(Listed(), (Names{"one", "another"}));
}

TEST_F(TwoModulesTest, WhatOnlyTheSecondShows_IsListed) {
    blind = *modules.front().functions;
    blind.C_FindObjects = [](CK_SESSION_HANDLE, CK_OBJECT_HANDLE*, CK_ULONG, CK_ULONG* count) -> CK_RV {
        *count = 0;
        return CKR_OK;
    };
    modules.front().functions = &blind;
    EXPECT_EQ(Listed(), Names{"another"});
}

TEST_F(TwoModulesTest, TwoTokensOfTheSameNameAndNumber_AreTwo) {
    AddFake("is-hardware");
    Start();
    OpenFirstToken();
    EXPECT_EQ(ListCertificates().size(), 2U) << "their certificates are different";
}
