#include "DriverFixture.h"

#include <array>

namespace {

using PluggingTest = DriverFixture;

void Replug(FakeTokenState& token) {
    token.Pull();
    token.PutBack();
}

CK_ATTRIBUTE* NoAttributes() { return nullptr; }

} // namespace

TEST_F(PluggingTest, PulledAndPutBack_SignsWithTheOldHandles) {
    FakeTokenState& token = GetFakeReadyToSign("works");
    for (unsigned times = 2; times < 5; ++times) {
        Replug(token);
        ExpectSigns("after all");
        EXPECT_EQ(token.logins, times);
    }
}

TEST_F(PluggingTest, WhicheverWayTheModuleSaysThatItIsGone_SignsWithTheOldHandles) {
    FakeTokenState& token = GetFakeReadyToSign("works");
    for (const CK_RV way : {CKR_SESSION_HANDLE_INVALID, CKR_SESSION_CLOSED, CKR_DEVICE_REMOVED,
                            CKR_TOKEN_NOT_PRESENT, CKR_TOKEN_NOT_RECOGNIZED}) {
        token.goneAnswer = way;
        Replug(token);
        ExpectSigns("after all");
    }
}

TEST_F(PluggingTest, PulledBetweenSignInitAndSign_Signs) {
    GetFakeReadyToSign("pulled-between-sign-init-and-sign");
    ExpectSigns("after all");
}

TEST_F(PluggingTest, PulledAndAnotherTokenPutIn_IsToldAndNeverUsed) {
    const FakeTokenState& token = GetFakeReadyToSign("pulled-and-another-token-put-in");
    EXPECT_EQ(AnswerToSign(), CKR_DEVICE_REMOVED);
    EXPECT_EQ(AnswerToSign(), CKR_DEVICE_REMOVED);
    EXPECT_EQ(token.logins, 1U) << "the other token was given the PIN";
}

TEST_F(PluggingTest, NotPutBack_IsToldAndTriedAgainByTheNextCall) {
    FakeTokenState& token = GetFakeReadyToSign("works");
    token.Pull();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(AnswerToSign(), CKR_DEVICE_REMOVED);
        CK_ATTRIBUTE value{CKA_VALUE, nullptr, 0};
        EXPECT_EQ(Driver().GetAttributeValue(session, certificates[0].handle, &value, 1), CKR_DEVICE_REMOVED);
        EXPECT_EQ(Driver().FindObjectsInit(session, NoAttributes(), 0), CKR_DEVICE_REMOVED);
    }
    token.PutBack();
    ExpectSigns("after all");
    EXPECT_EQ(token.logins, 2U);
}

TEST_F(PluggingTest, PutIntoAnotherReader_SignsWithTheOldHandles) {
    FakeTokenState& token = AddFake("moves-to-another-slot-when-pulled");
    GetReadyToSign();
    Replug(token);
    ExpectSigns("text");
    EXPECT_EQ(token.logins, 2U);
}

TEST_F(PluggingTest, AnotherTokenOfTheSameNameAndNumber_IsNeverUsedNorGivenThePin) {
    FakeTokenState& here = AddFake("works", "priority: 2\n");
    FakeTokenState& there = AddFake("is-hardware", "priority: 1\n");
    there.Pull();
    GetReadyToSign();
    here.Pull();
    there.PutBack(); // same label, serial number and model; a certificate of its own
    EXPECT_FALSE(Sign(CKM_SHA256_RSA_PKCS, key, "text"));
    EXPECT_EQ(answer, CKR_DEVICE_REMOVED);
    EXPECT_EQ(there.logins, 0U);
    there.Pull();
    here.PutBack(); // the PIN was forgotten
    EXPECT_FALSE(Sign(CKM_SHA256_RSA_PKCS, key, "text"));
    EXPECT_EQ(answer, CKR_USER_NOT_LOGGED_IN);
    EXPECT_EQ(here.logins, 1U);
}

TEST_F(PluggingTest, PulledDuringASearch_GoesOnBehindWhatWasFound) {
    FakeTokenState& token = OpenFake("holds-1000-objects");
    ASSERT_EQ(Driver().FindObjectsInit(session, NoAttributes(), 0), CKR_OK);
    std::array<CK_OBJECT_HANDLE, 100> objects{};
    CK_ULONG count = 0;
    CK_ULONG total = 0;
    do {
        ASSERT_EQ(Driver().FindObjects(session, objects.data(), objects.size(), &count), CKR_OK);
        total += count;
        if (total == 200)
            Replug(token);
    } while (count > 0);
    EXPECT_EQ(total, 500U); // the certificates; the keys show after login
    EXPECT_EQ(Driver().FindObjectsFinal(session), CKR_OK);
}

TEST_F(PluggingTest, ATokenThatCannotBeReadAfterAPull_IsTriedAgainByTheNextCall) {
    FakeTokenState& token = AddFake("fails-once-to-find-after-a-pull");
    GetReadyToSign();
    Replug(token);
    EXPECT_FALSE(Sign(CKM_SHA256_RSA_PKCS, key, "text"));
    EXPECT_EQ(answer, CKR_DEVICE_REMOVED);
    ExpectSigns("text");
}

TEST_F(PluggingTest, PulledDuringASearchAndGone_EndsCleanly) {
    FakeTokenState& token = OpenFake("works");
    ASSERT_EQ(Driver().FindObjectsInit(session, NoAttributes(), 0), CKR_OK);
    token.Pull();
    CK_OBJECT_HANDLE object = 0;
    CK_ULONG count = 0;
    EXPECT_EQ(Driver().FindObjects(session, &object, 1, &count), CKR_OK);
    ASSERT_EQ(count, 1U);
    CK_ATTRIBUTE value{CKA_VALUE, nullptr, 0};
    EXPECT_EQ(Driver().GetAttributeValue(session, object, &value, 1), CKR_DEVICE_REMOVED);
    EXPECT_EQ(Driver().FindObjectsFinal(session), CKR_OK);
    token.PutBack();
    EXPECT_EQ(ListCertificates().size(), 1U);
}

TEST_F(PluggingTest, OldCertificateHandles_StillReadTheCertificate) {
    FakeTokenState& token = GetFakeReadyToSign("ids-with-zero-bytes");
    Replug(token);
    for (const ListedCertificate& certificate : certificates) {
        std::string der(certificate.der.size(), '\0');
        CK_ATTRIBUTE value{CKA_VALUE, der.data(), der.size()};
        EXPECT_EQ(Driver().GetAttributeValue(session, certificate.handle, &value, 1), CKR_OK);
        EXPECT_EQ(der, certificate.der);
    }
}

TEST_F(PluggingTest, APinThatIsRefused_IsNeverTriedASecondTime) {
    FakeTokenState& token = GetFakeReadyToSign("works");
    token.pin = "changed elsewhere";
    for (int i = 0; i < 3; ++i) {
        Replug(token);
        EXPECT_EQ(AnswerToSign(), CKR_USER_NOT_LOGGED_IN);
    }
    EXPECT_EQ(token.logins, 2U);
    EXPECT_EQ(ListCertificates().size(), 1U) << "what needs no login still works";
}

TEST_F(PluggingTest, TheLastTry_IsNotSpent) {
    FakeTokenState& token = GetFakeReadyToSign("works");
    token.moreTokenFlags = CKF_USER_PIN_FINAL_TRY;
    Replug(token);
    EXPECT_EQ(AnswerToSign(), CKR_USER_NOT_LOGGED_IN);
    EXPECT_EQ(token.logins, 1U);
}

TEST_F(PluggingTest, BeforeAnyLogin_NoneIsTried) {
    FakeTokenState& token = OpenFake("works");
    ListCertificates();
    Replug(token);
    EXPECT_EQ(ListCertificates().size(), 1U);
    EXPECT_EQ(token.logins, 0U);
    Login();
    EXPECT_EQ(token.logins, 1U);
}

TEST_F(PluggingTest, PulledBeforeLogin_LogsInWithThePinGiven) {
    FakeTokenState& token = OpenFake("works");
    certificates = ListCertificates();
    Replug(token);
    Login();
    EXPECT_EQ(token.logins, 1U);
    key = FindKey(certificates[0].idText);
    ExpectSigns("after all");
}

TEST_F(PluggingTest, TwoSessions_BothComeBackWithOneLoginEach) {
    FakeTokenState& token = GetFakeReadyToSign("works");
    const CK_SESSION_HANDLE first = session;
    OpenFirstToken();
    Replug(token);
    ExpectSigns("after all");
    session = first;
    ExpectSigns("after all");
}

TEST_F(PluggingTest, TwoObjectsOfTheSameClassAndId_AreNotGuessedAt) {
    FakeTokenState& token = GetFakeReadyToSign("two-keys-with-one-id");
    Replug(token);
    EXPECT_EQ(AnswerToSign(), CKR_KEY_HANDLE_INVALID);
}
