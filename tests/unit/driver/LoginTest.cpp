#include "DriverFixture.h"
#include "SoftToken.h"

namespace {

class LoginTest : public DriverFixture {
protected:
    CK_RV TryLogin(std::string pin) {
        return Driver().Login(session, CKU_USER, reinterpret_cast<CK_UTF8CHAR*>(pin.data()), pin.size());
    }
};

} // namespace

TEST_F(LoginTest, TheTokensAnswers_GoThrough) {
    OpenFake("works");
    EXPECT_EQ(TryLogin("4321"), CKR_PIN_INCORRECT);
    EXPECT_EQ(TryLogin("1234"), CKR_OK);
    EXPECT_EQ(TryLogin("1234"), CKR_USER_ALREADY_LOGGED_IN);
}

TEST_F(LoginTest, ALockedPin_IsToldAndTriedOnce) {
    const FakeTokenState& token = OpenFake("pin-locked");
    EXPECT_EQ(TryLogin("1234"), CKR_PIN_LOCKED);
    EXPECT_EQ(token.logins, 1U);
}

TEST_F(LoginTest, AKeyThatAlwaysAuthenticates_GetsThePinForEverySignature) {
    const FakeTokenState& token = GetFakeReadyToSign("always-authenticate-key");
    for (const char* text : {"one", "two", "three"}) {
        ExpectSigns(text);
    }
    EXPECT_EQ(token.logins, 1U);
    EXPECT_EQ(token.keyLogins, 3U);
}

TEST_F(LoginTest, AKeyThatAlwaysAuthenticates_WorksWithSoftHsm) {
    SoftToken(home).Store("\x01", true);
    GetReadyToSign();
    for (const char* text : {"one", "two"}) {
        ExpectSigns(text);
    }
}

TEST_F(LoginTest, APinThatAKeyRefuses_IsNotTriedAgain) {
    FakeTokenState& token = GetFakeReadyToSign("always-authenticate-key");
    token.pin = "changed elsewhere";
    EXPECT_EQ(AnswerToSign(), CKR_PIN_INCORRECT);
    EXPECT_EQ(AnswerToSign(), CKR_USER_NOT_LOGGED_IN);
    EXPECT_EQ(token.keyLogins, 1U);
}

TEST_F(LoginTest, TheLastTry_IsNotSpentOnAKey) {
    FakeTokenState& token = GetFakeReadyToSign("always-authenticate-key");
    token.moreTokenFlags = CKF_USER_PIN_FINAL_TRY;
    EXPECT_EQ(AnswerToSign(), CKR_USER_NOT_LOGGED_IN);
    EXPECT_EQ(token.keyLogins, 0U);
    token.moreTokenFlags = 0;
    EXPECT_TRUE(Sign("text")) << std::hex << answer;
}

TEST_F(LoginTest, WhereTheTokenDoesNotTellHowManyTriesAreLeft_NoneIsSpentOnAKey) {
    const FakeTokenState& token = GetFakeReadyToSign("always-authenticate-key-and-no-token-info-after-login");
    EXPECT_EQ(AnswerToSign(), CKR_USER_NOT_LOGGED_IN);
    EXPECT_EQ(token.keyLogins, 0U);
}

TEST_F(LoginTest, APinPad_IsUsedInsteadOfTheTypedPin) {
    const FakeTokenState& token = GetFakeReadyToSign("has-a-pin-pad");
    EXPECT_EQ(token.logins, 1U);
    EXPECT_TRUE(Sign("text"));
}
