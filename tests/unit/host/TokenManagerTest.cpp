#include "ScriptedToken.h"
#include "support/Memory.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class TokenManagerTest : public ScriptedToken {
protected:
    void AddFault(const char* call, CK_RV returnValue, int nth = 1) {
        script["faults"].push_back({{"call", call}, {"nth", nth}, {"rv", returnValue}});
    }

    /// The certificates cannot be listed, for this reason.
    static void ExpectNoList(const std::string& reason) {
        try {
            tokenManager.BuildTokenCertList();
            FAIL() << "nothing was thrown";
        } catch (const std::runtime_error& e) {
            EXPECT_EQ(e.what(), reason);
        }
        EXPECT_TRUE(HasLogged("Error  in GetTokenCertList(): " + reason)) << Log();
    }

    static OperationResult SignText(const char* text = "text", const char* hash = "SHA256") {
        const TokenKey key = tokenManager.GetTokenPvtKey("01");
        return tokenManager.TokenSignData(key.hPrivateKey, Octets(text), hash);
    }
};

TEST_F(TokenManagerTest, AModuleThatIsNotThereIsReportedInTheWordsForTheUser) {
    const OperationResult loaded = tokenManager.LoadTokenDrivers();
    EXPECT_FALSE(loaded.success);
    EXPECT_EQ(loaded.text,
              "Could not load Smartcard or Token driver from path: ./QMTokenDriver.so, exiting Quillmark "
              "Extension Host... \n\nPut the file in application folder with name 'QMTokenDriver.so' and "
              "try again.");
    EXPECT_THAT(Log(), HasSubstr(loaded.text));
}

TEST_F(TokenManagerTest, AnEmptyPathLoadsTheProgramItselfAndFailsAtTheFirstCall) {
    TokenDriverFullPath = "";
    EXPECT_TRUE(tokenManager.LoadTokenDrivers().success);
    const OperationResult opened = tokenManager.TokenOpenSession();
    EXPECT_FALSE(opened.success);
    EXPECT_EQ(opened.text, "[CKR_ERROR in C_Initialize] ErrCode = 0x00000054.");
}

TEST_F(TokenManagerTest, TheReportNamesTheModule) {
    LoadModule();
    EXPECT_THAT(Log(), HasSubstr(std::string(" Token Drivers Loaded from ") + FAKE_PKCS11_MODULE + "\n"));
}

TEST_F(TokenManagerTest, OnlyTheLow32BitsOfAResultAreShown) {
    AddFault("C_Initialize", 0x1234500000190UL);
    LoadModule();
    EXPECT_EQ(tokenManager.TokenOpenSession().text, "[CKR_ERROR in C_Initialize] ErrCode = 0x00000190.");
}

TEST_F(TokenManagerTest, TheFirstSlotIsOpenedForReadingAndWriting) {
    script["slots"] = {7, 5};
    LoadModule();
    EXPECT_TRUE(tokenManager.TokenOpenSession().success);
    EXPECT_EQ(TokenManager::TokenState, TOKEN_SESSION_OPEN);
    const auto opened = Calls("C_OpenSession");
    ASSERT_EQ(opened.size(), 1U);
    EXPECT_EQ(opened[0]["in"]["slot"], 7);
    EXPECT_EQ(opened[0]["in"]["flags"], 6);
}

TEST_F(TokenManagerTest, WithoutATokenTheModuleIsFinalisedSoThatTheNextTryCanInitialiseIt) {
    script["slots"] = nlohmann::json::array();
    LoadModule();
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_EQ(tokenManager.TokenOpenSession().text, "No slot with token attached.");
        EXPECT_EQ(TokenManager::TokenState, TOKEN_NOT_FOUND);
    }
}

TEST_F(TokenManagerTest, AnAbsurdNumberOfSlotsIsRefusedBeforeAnythingIsAllocated) {
    script["faults"] = {{{"call", "C_GetSlotList"}, {"nth", 1}, {"out", {{"count", 1UL << 40}}}}};
    LoadModule();
    EXPECT_EQ(tokenManager.TokenOpenSession().text, "C_GetSlotList gives more than 65536 slots");
}

TEST_F(TokenManagerTest, ATokenPulledBetweenTheTwoLooksAtTheSlotsIsNotOpened) {
    script["faults"] = {{{"call", "C_GetSlotList"}, {"nth", 2}, {"out", {{"count", 0}}}}};
    LoadModule();
    EXPECT_EQ(tokenManager.TokenOpenSession().text, "C_GetSlotList gives no slot any more");
    EXPECT_TRUE(Calls("C_OpenSession").empty());
}

TEST_F(TokenManagerTest, OpeningTwiceFailsInTheSecondInitialisation) {
    LoadModule();
    EXPECT_TRUE(tokenManager.TokenOpenSession().success);
    const OperationResult again = tokenManager.TokenOpenSession();
    EXPECT_FALSE(again.success);
    EXPECT_EQ(again.text, "[CKR_ERROR in C_Initialize] ErrCode = 0x00000191.");
    EXPECT_THAT(Log(), HasSubstr(" Error  in TokenOpenSession(): " + again.text));
}

TEST_F(TokenManagerTest, AGivenPinIsUsedWithoutAskingAndKept) {
    LogIn();
    EXPECT_EQ(TokenManager::TokenState, TOKEN_LOGEDIN);
    EXPECT_EQ(tokenManager.TokenUserPin, "1234");
    const auto logins = Calls("C_Login");
    ASSERT_EQ(logins.size(), 1U);
    EXPECT_EQ(logins[0]["in"]["user"], 1);
    EXPECT_EQ(logins[0]["in"]["pinLength"], 4);
}

TEST_F(TokenManagerTest, TheKeptPinLiesInLockedMemoryHoweverLongItIs) {
    for (const std::string& pin : {std::string("1234"), std::string(200, '7')}) {
        tokenManager.TokenUserPin = pin;
        EXPECT_THAT(MemoryFlagsOf(tokenManager.TokenUserPin.data()), HasSubstr(" lo ")) << pin.size();
    }
}

TEST_F(TokenManagerTest, AWrongPinIsReportedAndNotKept) {
    LoadModule();
    EXPECT_EQ(tokenManager.TokenLogin("9999").text, "[CKR_ERROR in C_Login] ErrCode = 0x000000A0.");
    EXPECT_EQ(tokenManager.TokenUserPin, "");
    EXPECT_EQ(TokenManager::TokenState, TOKEN_SESSION_OPEN);
}

TEST_F(TokenManagerTest, ThePinIsInNoLogLine) {
    AppLogLevel = DEBUG;
    script["pin"] = "s3cretP1n";
    LoadModule();
    EXPECT_TRUE(tokenManager.TokenLogin("s3cretP1n").success);
    EXPECT_THAT(Log(), Not(HasSubstr("s3cretP1n")));
}

TEST_F(TokenManagerTest, LoggingInTwiceOpensTheSessionAnewAndFailsThere) {
    LogIn();
    EXPECT_EQ(tokenManager.TokenLogin("1234").text, "[CKR_ERROR in C_Initialize] ErrCode = 0x00000191.");
}

TEST_F(TokenManagerTest, ChainCertificatesAreRecordedButNotOffered) {
    AddCertificate("ca1", "ca1.der",
                   {.extensions = {Configured("keyUsage", "critical,keyCertSign,cRLSign")}});
    AddCertificate("ca2", "ca2.der", {});
    OpenToken();
    for (int build = 0; build < 2; ++build) { // the second one starts from scratch
        EXPECT_EQ(tokenManager.BuildTokenCertList().size(), 1U);
        EXPECT_EQ(SelectCertDisplayListCKA_ID, std::vector<std::string>{"01"});
        EXPECT_EQ(tokenManager.TokenCertList.ObjectAt(0)->stringOf("ChainCert"), "false");
        EXPECT_EQ(tokenManager.TokenCertList.ObjectAt(1)->stringOf("ChainCert"), "true");
        EXPECT_EQ(tokenManager.TokenCertList.ObjectAt(2)->stringOf("CKA_ID"), "ca2");
        EXPECT_EQ(tokenManager.TokenCertList.ObjectAt(3), nullptr);
    }
}

TEST_F(TokenManagerTest, AnIdIsItsBytesUpToTheFirstZero) {
    script["objects"] = nlohmann::json::array();
    AddCertificate(std::string("ab\0cd", 5), "zero.der", {.extensions = ForSigning()});
    AddCertificate("", "empty.der", {.extensions = ForSigning()});
    AddCertificate("\xff\x80id", "binary.der", {.extensions = ForSigning()});
    OpenToken();
    tokenManager.BuildTokenCertList();
    EXPECT_EQ(SelectCertDisplayListCKA_ID, (std::vector<std::string>{"ab", "", "\xff\x80id"}));
    EXPECT_EQ(tokenManager.TokenCertList.FindObject("CKA_ID", "\xff\x80id", true), 2);
}

TEST_F(TokenManagerTest, ATokenWithoutCertificatesGivesAnEmptyListAndALogLine) {
    script["objects"] = nlohmann::json::array();
    OpenToken();
    EXPECT_TRUE(tokenManager.BuildTokenCertList().empty());
    EXPECT_TRUE(HasLogged("Can't find X.509 Certificate in Token")) << Log();
}

TEST_F(TokenManagerTest, SearchesGoOutWithTheLengthsThatOldModulesExpect) {
    LogIn();
    tokenManager.BuildTokenCertList();
    EXPECT_TRUE(tokenManager.GetTokenPvtKey("01").found);
    const auto searches = Calls("C_FindObjectsInit");
    ASSERT_EQ(searches.size(), 2U);
    const auto lengths = [](const nlohmann::json& search) {
        std::vector<std::pair<int, int>> typesAndLengths;
        for (const auto& attribute : search["in"]["template"])
            typesAndLengths.emplace_back(attribute["type"], attribute["length"]);
        return typesAndLengths;
    };
    EXPECT_EQ(lengths(searches[0]), (std::vector<std::pair<int, int>>{{0, 4}, {0x80, 4}, {1, 1}}));
    EXPECT_EQ(lengths(searches[1]),
              (std::vector<std::pair<int, int>>{{0, 4}, {0x100, 4}, {1, 1}, {0x102, 3}}));
    EXPECT_EQ(searches[1]["in"]["template"][3]["value"], "303100");
}

class AttributeLength : public TokenManagerTest, public ::testing::WithParamInterface<std::int64_t> {};

TEST_P(AttributeLength, ThatIsAbsurdEndsTheListingBeforeAnythingIsAllocated) {
    script["faults"] = {{{"call", "C_GetAttributeValue"}, {"nth", 1}, {"out", {{"CKA_VALUE", GetParam()}}}}};
    OpenToken();
    ExpectNoList("C_GetAttributeValue gives a length above 16777216 bytes");
}

INSTANTIATE_TEST_SUITE_P(Nonsense, AttributeLength, ::testing::Values(-1, std::int64_t{1} << 40));

TEST_F(TokenManagerTest, AnAttributeThatGrowsBetweenTheTwoLooksAtItEndsTheListing) {
    script["faults"] = {{{"call", "C_GetAttributeValue"}, {"nth", 2}, {"out", {{"CKA_ID", 3}}}}};
    OpenToken();
    ExpectNoList("C_GetAttributeValue gives more than it said");
}

TEST_F(TokenManagerTest, ASearchThatNeverEndsIsGivenUp) {
    TokenDriverFullPath = SEARCHES_WITHOUT_END_MODULE;
    ASSERT_TRUE(tokenManager.LoadTokenDrivers().success);
    ASSERT_TRUE(tokenManager.TokenOpenSession().success);
    ExpectNoList("C_FindObjects gives more than 100000 certificates");
}

TEST_F(TokenManagerTest, AfterASearchThatFoundNoKeyTheNextOneFindsItStillOpen) {
    LogIn();
    const TokenKey first = tokenManager.GetTokenPvtKey("no such key");
    EXPECT_FALSE(first.found);
    EXPECT_EQ(first.message, "Private Key NOT Found");
    EXPECT_EQ(first.hPrivateKey, 0U);
    EXPECT_TRUE(Calls("C_FindObjectsFinal").empty());

    const TokenKey second = tokenManager.GetTokenPvtKey("no such key");
    EXPECT_FALSE(second.found);
    EXPECT_EQ(second.message, "");
    EXPECT_EQ(second.hPrivateKey, 0U);
    EXPECT_THAT(Log(), HasSubstr(" Error in GetTokenPvtKey(): [CKR_ERROR in GetTokenPvtKey - "
                                 "C_FindObjectsInit] ErrCode = 0x00000090."));
}

TEST_F(TokenManagerTest, TheHashNameChoosesTheMechanismToTheLetter) {
    LogIn();
    for (const char* name : {"SHA256", "SHA384", "SHA512", "sha384", "SHA1"}) {
        const OperationResult signature = SignText("text", name);
        EXPECT_TRUE(signature.success) << signature.text;
        EXPECT_EQ(signature.text.size(), 344U); // Base64 of 256 bytes
    }
    std::vector<int> mechanisms;
    for (const auto& call : Calls("C_SignInit"))
        mechanisms.push_back(call["in"]["mechanism"]);
    EXPECT_EQ(mechanisms, (std::vector<int>{0x40, 0x41, 0x42, 0x40, 0x40}));
}

TEST_F(TokenManagerTest, WhatIsSignedEndsAtTheFirstZeroByte) {
    LogIn();
    SignText("ab\0cd");
    EXPECT_EQ(Calls("C_Sign").at(0)["in"]["data"], "6162");
    EXPECT_EQ(Calls("C_Sign").at(0)["in"]["length"], 1024);
}

TEST_F(TokenManagerTest, AFailedSignatureOverDataComesBackWithItsPrefix) {
    AddFault("C_Sign", CKR_DEVICE_REMOVED);
    LogIn();
    const OperationResult signature = SignText();
    EXPECT_FALSE(signature.success);
    EXPECT_EQ(signature.text, "Error  in TokenSignData(): [CKR_ERROR in C_Sign] ErrCode = 0x00000032.");
}

TEST_F(TokenManagerTest, AFailedSignatureOverAHashIsEmptyAndItsReasonInTheLog) {
    AddFault("C_SignInit", CKR_KEY_HANDLE_INVALID);
    LogIn();
    EXPECT_TRUE(tokenManager.TokenSignHash(1, Octets("block")).empty());
    EXPECT_THAT(Log(), HasSubstr(" Error  in TokenSign(): [CKR_ERROR in C_SignInit] ErrCode = 0x00000060."));
}

class SignatureLength : public TokenManagerTest, public ::testing::WithParamInterface<std::int64_t> {};

TEST_P(SignatureLength, ThatIsMoreThanTheBufferIsRefused) {
    script["faults"] = {{{"call", "C_Sign"}, {"out", {{"length", GetParam()}}}}};
    LogIn();
    EXPECT_EQ(SignText().text, "Error  in TokenSignData(): C_Sign gives a signature above 1024 bytes");
    const TokenKey key = tokenManager.GetTokenPvtKey("01");
    EXPECT_TRUE(tokenManager.TokenSignHash(key.hPrivateKey, Octets("text")).empty());
}

INSTANTIATE_TEST_SUITE_P(Nonsense, SignatureLength, ::testing::Values(-1, 1025, std::int64_t{1} << 40));

TEST_F(TokenManagerTest, ASignatureOfNoBytesIsOneAllTheSame) {
    script["faults"] = {{{"call", "C_Sign"}, {"out", {{"length", 0}}}}};
    LogIn();
    const OperationResult signature = SignText();
    EXPECT_TRUE(signature.success);
    EXPECT_EQ(signature.text, "");
    const TokenKey key = tokenManager.GetTokenPvtKey("01");
    EXPECT_TRUE(tokenManager.TokenSignHash(key.hPrivateKey, Octets("text")).empty());
    EXPECT_THAT(Log(), Not(HasSubstr("Error")));
}

} // namespace
