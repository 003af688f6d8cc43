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
    AddFake("works");
    Start();
    OpenFirstToken();
    EXPECT_EQ(TryLogin("4321"), CKR_PIN_INCORRECT);
    EXPECT_EQ(TryLogin("1234"), CKR_OK);
    EXPECT_EQ(TryLogin("1234"), CKR_USER_ALREADY_LOGGED_IN);
}

TEST_F(LoginTest, ALockedPin_IsToldAndTriedOnce) {
    const FakeTokenState& token = AddFake("pin-locked");
    Start();
    OpenFirstToken();
    EXPECT_EQ(TryLogin("1234"), CKR_PIN_LOCKED);
    EXPECT_EQ(token.logins, 1U);
}

TEST_F(LoginTest, AKeyThatAlwaysAuthenticates_GetsThePinForEverySignature) {
    const FakeTokenState& token = AddFake("always-authenticate-key");
    const CK_OBJECT_HANDLE key = GetReadyToSign();
    for (const char* text : {"one", "two", "three"}) {
        const std::optional<std::string> signature = Sign(CKM_SHA256_RSA_PKCS, key, text);
        ASSERT_TRUE(signature) << std::hex << answer;
        EXPECT_TRUE(Verifies(certificates[0].der, "SHA256", text, *signature));
    }
    EXPECT_EQ(token.logins, 1U);
    EXPECT_EQ(token.keyLogins, 3U);
}

TEST_F(LoginTest, AKeyThatAlwaysAuthenticates_WorksWithSoftHsm) {
    SoftToken(home).Store({0x01}, true);
    const CK_OBJECT_HANDLE key = GetReadyToSign();
    for (const char* text : {"one", "two"}) {
        const std::optional<std::string> signature = Sign(CKM_SHA256_RSA_PKCS, key, text);
        ASSERT_TRUE(signature) << std::hex << answer;
        EXPECT_TRUE(Verifies(certificates[0].der, "SHA256", text, *signature));
    }
}

TEST_F(LoginTest, APinThatAKeyRefuses_IsNotTriedAgain) {
    FakeTokenState& token = AddFake("always-authenticate-key");
    const CK_OBJECT_HANDLE key = GetReadyToSign();
    token.pin = "changed elsewhere";
    EXPECT_FALSE(Sign(CKM_SHA256_RSA_PKCS, key, "text"));
    EXPECT_EQ(answer, CKR_PIN_INCORRECT);
    EXPECT_FALSE(Sign(CKM_SHA256_RSA_PKCS, key, "text"));
    EXPECT_EQ(answer, CKR_USER_NOT_LOGGED_IN);
    EXPECT_EQ(token.keyLogins, 1U);
}

TEST_F(LoginTest, TheLastTry_IsNotSpentOnAKey) {
    FakeTokenState& token = AddFake("always-authenticate-key");
    const CK_OBJECT_HANDLE key = GetReadyToSign();
    token.moreTokenFlags = CKF_USER_PIN_FINAL_TRY;
    EXPECT_FALSE(Sign(CKM_SHA256_RSA_PKCS, key, "text"));
    EXPECT_EQ(answer, CKR_USER_NOT_LOGGED_IN);
    EXPECT_EQ(token.keyLogins, 0U);
    token.moreTokenFlags = 0;
    EXPECT_TRUE(Sign(CKM_SHA256_RSA_PKCS, key, "text")) << std::hex << answer;
}

TEST_F(LoginTest, WhereTheTokenDoesNotTellHowManyTriesAreLeft_NoneIsSpentOnAKey) {
    const FakeTokenState& token = AddFake("always-authenticate-key-and-no-token-info-after-login");
    const CK_OBJECT_HANDLE key = GetReadyToSign();
    EXPECT_FALSE(Sign(CKM_SHA256_RSA_PKCS, key, "text"));
    EXPECT_EQ(answer, CKR_USER_NOT_LOGGED_IN);
    EXPECT_EQ(token.keyLogins, 0U);
}

TEST_F(LoginTest, APinPad_IsUsedInsteadOfTheTypedPin) {
    const FakeTokenState& token = AddFake("has-a-pin-pad");
    const CK_OBJECT_HANDLE key = GetReadyToSign();
    EXPECT_EQ(token.logins, 1U);
    EXPECT_TRUE(Sign(CKM_SHA256_RSA_PKCS, key, "text"));
}
