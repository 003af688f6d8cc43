#include "DriverFixture.h"

// A PIN that was answered with anything but success is never tried again, whatever the answer was.

namespace {

class PinRulesTest : public DriverFixture, public testing::WithParamInterface<CK_RV> {
protected:
    static void Replug(FakeTokenState& token) {
        token.Pull();
        token.PutBack();
    }
};

} // namespace

class ExchangedTokenTest : public DriverFixture {};

TEST_F(ExchangedTokenTest, WhoseModuleHasKeptTheSession_IsNotGivenThePin) {
    FakeTokenState& token = OpenFake("works");
    ListCertificates();
    token.Exchange();
    std::string pin = "1234";
    EXPECT_NE(Driver().Login(session, CKU_USER, reinterpret_cast<CK_UTF8CHAR*>(pin.data()), pin.size()),
              CKR_OK);
    EXPECT_TRUE(token.pinsTriedAtTheOther.empty());
}

TEST_P(PinRulesTest, AtALoginAfterAPull_ThePinIsForgotten) {
    FakeTokenState& token = AddFake("works");
    GetReadyToSign();
    token.loginAnswer = GetParam();
    Replug(token);
    for (int i = 0; i < 6; ++i) {
        EXPECT_FALSE(Sign(CKM_SHA256_RSA_PKCS, key, "text"));
        EXPECT_EQ(answer, CKR_USER_NOT_LOGGED_IN);
    }
    token.loginAnswer = CKR_OK;
    Replug(token);
    EXPECT_FALSE(Sign(CKM_SHA256_RSA_PKCS, key, "text"));
    EXPECT_EQ(token.logins, 2U);
}

TEST_P(PinRulesTest, AtTheLoginForAKey_ThePinIsForgotten) {
    FakeTokenState& token = AddFake("always-authenticate-key");
    GetReadyToSign();
    token.loginAnswer = GetParam();
    for (int i = 0; i < 6; ++i)
        EXPECT_FALSE(Sign(CKM_SHA256_RSA_PKCS, key, "text"));
    EXPECT_EQ(token.keyLogins, 1U);
}

TEST_P(PinRulesTest, AtTheHostsLogin_TheAnswerGoesThroughAndThePinIsNotKept) {
    FakeTokenState& token = AddFake("works");
    Start();
    OpenFirstToken();
    token.loginAnswer = GetParam();
    std::string pin = "1234";
    EXPECT_EQ(Driver().Login(session, CKU_USER, reinterpret_cast<CK_UTF8CHAR*>(pin.data()), pin.size()),
              GetParam());
    Replug(token);
    ListCertificates();
    EXPECT_EQ(token.logins, 1U);
}

INSTANTIATE_TEST_SUITE_P(Answers, PinRulesTest,
                         testing::Values(CKR_PIN_INCORRECT, CKR_FUNCTION_FAILED, CKR_DEVICE_ERROR,
                                         CKR_GENERAL_ERROR, CKR_VENDOR_DEFINED | 0x42));

TEST_F(DriverFixture, ThatTheUserIsLoggedInAlready_KeepsThePin) {
    FakeTokenState& token = AddFake("works");
    GetReadyToSign();
    token.loginAnswer = CKR_USER_ALREADY_LOGGED_IN;
    token.Pull();
    token.PutBack();
    token.loggedIn = true;
    EXPECT_TRUE(Sign(CKM_SHA256_RSA_PKCS, key, "text")) << std::hex << answer;
    token.loginAnswer = CKR_OK;
    token.Pull();
    token.PutBack();
    EXPECT_TRUE(Sign(CKM_SHA256_RSA_PKCS, key, "text")) << std::hex << answer;
    EXPECT_EQ(token.pinsTried, (std::vector<std::string>{"1234", "1234", "1234"}));
}
