#include "DriverFixture.h"

#include "ScriptedPinentry.h"

#include <array>

// Several tokens in one slot, each with a PIN of its own: which PIN goes where.

namespace {

constexpr const char* kCancelled = "ERR 83886179 Operation cancelled <Pinentry>";

using Pins = std::vector<std::string>;
using testing::HasSubstr;

class SeveralTokensTest : public DriverFixture {
protected:
    struct OneOfThem {
        FakeTokenState* token;
        ListedCertificate certificate;
    };

    FakeTokenState& AddToken(const char* fake, const std::string& number, const std::string& pin) {
        FakeTokenState& token = AddFake(fake);
        token.label = "Token " + number;
        token.serialNumber = number;
        token.pin = pin;
        return token;
    }

    /// Three tokens; which certificate is whose shows in the log of a signature only, so it is found out by
    /// pulling the others.
    void StartWithThree() {
        one = &AddToken("works", "1", "1111");
        two = &AddToken("is-hardware", "2", "2222");
        three = &AddToken("lacks-hash-mechanisms", "3", "3333");
        Start();
        OpenFirstToken();
        for (FakeTokenState* token : {one, two, three}) {
            for (FakeTokenState* other : {one, two, three})
                other->present = other == token;
            alone.push_back(ListCertificates().at(0).der);
        }
        for (FakeTokenState* token : {one, two, three})
            token->present = true;
        certificates = ListCertificates();
        ASSERT_EQ(certificates.size(), 3U);
    }

    const ListedCertificate& Of(const FakeTokenState* token) {
        const std::size_t index = token == one ? 0 : token == two ? 1 : 2;
        for (const ListedCertificate& certificate : certificates)
            if (certificate.der == alone[index])
                return certificate;
        throw std::runtime_error("its certificate is not in the list");
    }

    /// C_FindObjectsInit for its key, as the host searches; the key is in `key`.
    CK_RV SearchKey(const FakeTokenState* token) {
        CK_ULONG objectClass = CKO_PRIVATE_KEY;
        CK_ULONG type = CKK_RSA;
        CK_BBOOL onToken = CK_TRUE;
        std::string id = Of(token).idText;
        std::array wanted = {CK_ATTRIBUTE{CKA_CLASS, &objectClass, 4}, CK_ATTRIBUTE{CKA_KEY_TYPE, &type, 4},
                             CK_ATTRIBUTE{CKA_TOKEN, &onToken, 1},
                             CK_ATTRIBUTE{CKA_ID, id.data(), id.size() + 1}};
        key = 0;
        const CK_RV begun = Driver().FindObjectsInit(session, wanted.data(), wanted.size());
        if (begun != CKR_OK)
            return begun;
        CK_ULONG count = 0;
        EXPECT_EQ(Driver().FindObjects(session, &key, 1, &count), CKR_OK);
        EXPECT_EQ(Driver().FindObjectsFinal(session), CKR_OK);
        return CKR_OK;
    }

    void ExpectSigns(const FakeTokenState* token) {
        ASSERT_EQ(SearchKey(token), CKR_OK);
        const std::optional<std::string> signature = Sign(CKM_SHA256_RSA_PKCS, key, "text");
        ASSERT_TRUE(signature) << std::hex << answer;
        EXPECT_TRUE(Verifies(Of(token).der, "SHA256", "text", *signature));
    }

    /// Nobody logs in: its key is handed out all the same, and the signature says why there is none.
    void ExpectNotLoggedIn(const FakeTokenState* token) {
        ASSERT_EQ(SearchKey(token), CKR_OK);
        ASSERT_NE(key, 0U);
        EXPECT_FALSE(Sign(CKM_SHA256_RSA_PKCS, key, "text"));
        EXPECT_EQ(answer, CKR_USER_NOT_LOGGED_IN);
    }

    void ExpectTried(const Pins& ofOne, const Pins& ofTwo, const Pins& ofThree) {
        EXPECT_EQ(one->pinsTried, ofOne);
        EXPECT_EQ(two->pinsTried, ofTwo);
        EXPECT_EQ(three->pinsTried, ofThree);
    }

    FakeTokenState* one = nullptr;
    FakeTokenState* two = nullptr;
    FakeTokenState* three = nullptr;
    std::vector<std::string> alone; ///< the certificates of the three
    CK_OBJECT_HANDLE key = 0;
};

} // namespace

TEST_F(SeveralTokensTest, ThePinGoesToTheTokenOfTheKeyAndToNoOther) {
    StartWithThree();
    Login("2222");
    ExpectTried({}, {}, {});
    ExpectSigns(two);
    ExpectTried({}, {"2222"}, {});
    ExpectSigns(two);
    ExpectTried({}, {"2222"}, {});
}

TEST_F(SeveralTokensTest, AWrongPin_IsToldAtTheSignatureAndIsNeverTriedAgain) {
    StartWithThree();
    Login("4321");
    ExpectNotLoggedIn(two);
    EXPECT_THAT(Log(), HasSubstr("CKR_PIN_INCORRECT"));
    for (const FakeTokenState* token : {two, one, three}) // there is no pinentry
        ExpectNotLoggedIn(token);
    ExpectTried({}, {"4321"}, {});
}

TEST_F(SeveralTokensTest, AFurtherToken_IsAskedForByPinentryWithItsNameAndNumber) {
    StartWithThree();
    const ScriptedPinentry pinentry(home);
    Login("1111");
    ExpectSigns(one);
    EXPECT_EQ(pinentry.Told(), "");
    pinentry.Answer("D 3333\nOK");
    ExpectSigns(three);
    EXPECT_NE(pinentry.Told().find("\"Token 3\", serial number 3,"), std::string::npos) << pinentry.Told();
    EXPECT_EQ(pinentry.Told().find("One try"), std::string::npos) << pinentry.Told();
    ExpectSigns(one);
    ExpectSigns(three);
    ExpectTried({"1111"}, {}, {"3333"});
}

TEST_F(SeveralTokensTest, TheLastTry_IsToldByPinentry) {
    StartWithThree();
    const ScriptedPinentry pinentry(home);
    two->moreTokenFlags = CKF_USER_PIN_FINAL_TRY;
    pinentry.Answer("D 2222\nOK");
    ExpectSigns(two);
    EXPECT_NE(pinentry.Told().find("One try is left"), std::string::npos) << pinentry.Told();
}

TEST_F(SeveralTokensTest, PinentrysEscapes_AreUndone) {
    StartWithThree();
    const ScriptedPinentry pinentry(home);
    two->pin = "2%2\n";
    pinentry.Answer("S PASSWORD_FROM_CACHE\n# a comment\nD 2%252%0A\nOK");
    ExpectSigns(two);
}

TEST_F(SeveralTokensTest, CancelledOrEmptyOrSilent_NoPinIsTried) {
    StartWithThree();
    const ScriptedPinentry pinentry(home);
    for (const char* lines : {kCancelled, "OK", "D \nOK", "D 2222\nERR 83886179 cancelled"}) {
        pinentry.Answer(lines);
        SCOPED_TRACE(lines);
        ExpectNotLoggedIn(two);
    }
    ExpectTried({}, {}, {});
}

TEST_F(SeveralTokensTest, APinentryThatCannotAsk_IsNone) {
    StartWithThree();
    const ScriptedPinentry pinentry(home);
    pinentry.Answer("ERR 83918950 Inappropriate ioctl for device <Pinentry>");
    ExpectNotLoggedIn(two);
    ExpectTried({}, {}, {});
}

TEST_F(SeveralTokensTest, ALockedPin_IsNotAskedFor) {
    StartWithThree();
    const ScriptedPinentry pinentry(home);
    two->moreTokenFlags = CKF_USER_PIN_LOCKED;
    ExpectNotLoggedIn(two);
    EXPECT_EQ(pinentry.Told(), "");
    ExpectTried({}, {}, {});
}

TEST_F(SeveralTokensTest, AWrongPinOfPinentry_IsAskedForAnewAtTheNextSearch) {
    StartWithThree();
    const ScriptedPinentry pinentry(home);
    pinentry.Answer("D 4321\nOK");
    ExpectNotLoggedIn(two);
    pinentry.Answer("D 2222\nOK");
    ExpectSigns(two);
    ExpectTried({}, {"4321", "2222"}, {});
}

TEST_F(SeveralTokensTest, ThePinOfATokenThatWasPulledBeforeItWasTried_IsForgotten) {
    StartWithThree();
    Login("2222");
    two->Pull();
    EXPECT_EQ(SearchKey(two), CKR_TOKEN_NOT_PRESENT);
    two->PutBack();
    ExpectNotLoggedIn(two);
    ExpectNotLoggedIn(one);
    ExpectTried({}, {}, {});
}

TEST_F(SeveralTokensTest, PulledAndPutBack_EachGetsItsOwnPinAgain) {
    StartWithThree();
    const ScriptedPinentry pinentry(home);
    Login("1111");
    ExpectSigns(one);
    pinentry.Answer("D 2222\nOK");
    ExpectSigns(two);
    pinentry.Answer(kCancelled);
    for (FakeTokenState* token : {one, two}) {
        token->Pull();
        token->PutBack();
    }
    ExpectSigns(two);
    ExpectSigns(one);
    ExpectTried({"1111", "1111"}, {"2222", "2222"}, {});
}

TEST_F(SeveralTokensTest, OneThatIsPulled_LeavesTheOthersAsTheyAreAndIsNotAskedFor) {
    StartWithThree();
    const ScriptedPinentry pinentry(home);
    Login("1111");
    ExpectSigns(one);
    two->Pull();
    ExpectSigns(one);
    EXPECT_EQ(SearchKey(two), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(pinentry.Told(), "");
    ExpectSigns(one);
    ExpectTried({"1111"}, {}, {});
}

TEST_F(SeveralTokensTest, APinPadAmongThem_AsksForItself) {
    FakeTokenState& other = AddToken("works", "1", "1111");
    const FakeTokenState& pad = AddToken("has-a-pin-pad", "2", "2222");
    const ScriptedPinentry pinentry(home);
    Start();
    OpenFirstToken();
    other.Pull();
    const std::string padCertificate = ListCertificates().at(0).der;
    other.PutBack();
    certificates = ListCertificates();
    ASSERT_EQ(certificates.size(), 2U);
    Login("whatever the host was given");
    for (const ListedCertificate& certificate : certificates) {
        if (certificate.der != padCertificate)
            continue;
        const CK_OBJECT_HANDLE found = FindKey(certificate.idText);
        EXPECT_TRUE(Sign(CKM_SHA256_RSA_PKCS, found, "text")) << std::hex << answer;
    }
    EXPECT_EQ(pad.logins, 1U);
    EXPECT_EQ(other.logins, 0U);
    EXPECT_EQ(pinentry.Told(), "");
}
