#include "DriverFixture.h"

// Which certificates the host is handed, in what order, and that each leads to itself.

namespace {

class OrderTest : public DriverFixture {
protected:
    std::vector<std::string> Ids() {
        std::vector<std::string> ids;
        certificates = ListCertificates();
        for (const ListedCertificate& certificate : certificates)
            ids.push_back(certificate.idText);
        return ids;
    }

    void ExpectSigns(const ListedCertificate& certificate) {
        key = FindKey(certificate.idText);
        const std::optional<std::string> signature = Sign(CKM_SHA256_RSA_PKCS, key, "text");
        ASSERT_TRUE(signature) << certificate.idText << ": " << std::hex << answer;
        EXPECT_TRUE(Verifies(certificate.der, "SHA256", "text", *signature)) << certificate.idText;
    }
};

using Ids_ = std::vector<std::string>;

} // namespace

TEST_F(OrderTest, ValidOnesComeFirstThenThoseNotYetValidThenExpiredThenChainCertificates) {
    AddFake("holds-an-expired-certificate-first");
    Start();
    OpenFirstToken();
    EXPECT_EQ(Ids(), (Ids_{"08", "04", "03", "02", "01", "07"}));
    EXPECT_NE(Log().find("left out: id 05 on the token \"Fake Token\" (serial number 0001), key usage"),
              std::string::npos)
        << Log();
    EXPECT_NE(Log().find("left out: id 06 on the token \"Fake Token\" (serial number 0001), not RSA"),
              std::string::npos)
        << Log();
}

TEST_F(OrderTest, OnceLoggedInThoseWithoutAPrivateKeyAreLeftOut) {
    AddFake("holds-an-expired-certificate-first");
    Start();
    OpenFirstToken();
    Login();
    EXPECT_EQ(Ids(), (Ids_{"04", "03", "02", "01", "07"}));
}

TEST_F(OrderTest, OnceLoggedInAKeyOfAnotherCertificateIsNone) {
    AddFake("has-a-foreign-key-with-its-id");
    Start();
    OpenFirstToken();
    Login();
    EXPECT_EQ(Ids(), Ids_{});
    EXPECT_NE(Log().find("belongs to another certificate"), std::string::npos) << Log();
}

TEST_F(OrderTest, ARenewal_HasAnIdOfItsOwnThatLeadsToItsCertificateAndKey) {
    AddFake("renewed-certificate-with-the-old-id");
    Start();
    OpenFirstToken();
    EXPECT_EQ(Ids(), (Ids_{"01", "01-2"})) << "the valid one first";
    EXPECT_NE(certificates[0].der, certificates[1].der);
    Login();
    for (const ListedCertificate& certificate : certificates)
        ExpectSigns(certificate);
    EXPECT_EQ(FindKey("01-3"), 0U);
}

TEST_F(OrderTest, TheIdOfACertificate_StaysTheSameInEveryList) {
    FakeTokenState& token = AddFake("renewed-certificate-with-the-old-id");
    Start();
    OpenFirstToken();
    const Ids_ before = Ids();
    token.Pull();
    token.PutBack();
    EXPECT_EQ(Ids(), before);
}

TEST_F(OrderTest, AnIdIsReadFromTheObjectAsTheListHasIt) {
    AddFake("renewed-certificate-with-the-old-id");
    Start();
    OpenFirstToken();
    const CK_OBJECT_HANDLE renewed = ListCertificates().at(1).handle;
    CK_ATTRIBUTE id{CKA_ID, nullptr, 0};
    ASSERT_EQ(Driver().GetAttributeValue(session, renewed, &id, 1), CKR_OK);
    ASSERT_EQ(id.ulValueLen, 4U);
    std::string text = "....";
    for (const CK_ULONG capacity : {2U, 3U}) {
        id = {CKA_ID, text.data(), capacity};
        EXPECT_EQ(Driver().GetAttributeValue(session, renewed, &id, 1), CKR_BUFFER_TOO_SMALL);
        EXPECT_EQ(id.ulValueLen, CK_UNAVAILABLE_INFORMATION);
    }
    id = {CKA_ID, text.data(), text.size()};
    EXPECT_EQ(Driver().GetAttributeValue(session, renewed, &id, 1), CKR_OK);
    EXPECT_EQ(text, "01-2");
}

TEST_F(OrderTest, ATokenPluggedInLater_IsInTheNextList) {
    AddFake("works");
    FakeTokenState& later = AddFake("holds-an-expired-certificate-first");
    later.Pull();
    Start();
    OpenFirstToken();
    EXPECT_EQ(Ids(), (Ids_{"ABCD01"}));
    later.PutBack();
    EXPECT_EQ(Ids(), (Ids_{"08", "04", "ABCD01", "03", "02", "01", "07"})) << "one order over all tokens";
    later.Pull();
    EXPECT_EQ(Ids(), (Ids_{"ABCD01"}));
}

TEST_F(OrderTest, WithALockedPin_CertificatesComeBehindTheOthersOfTheSameStanding) {
    FakeTokenState& token = AddFake("holds-an-expired-certificate-first");
    AddFake("works");
    Start();
    OpenFirstToken();
    EXPECT_EQ(Ids(), (Ids_{"08", "04", "ABCD01", "03", "02", "01", "07"}));
    token.moreTokenFlags = CKF_USER_PIN_LOCKED; // by wrong tries in another program
    EXPECT_EQ(Ids(), (Ids_{"ABCD01", "08", "04", "03", "02", "01", "07"}));
}

TEST_F(OrderTest, WithoutAPinSet_CertificatesComeBehindTheOthersOfTheSameStanding) {
    AddFake("pin-not-set");
    FakeTokenState& token = AddFake("works");
    Start();
    OpenFirstToken();
    EXPECT_EQ(Ids(), (Ids_{"ABCD01", "ABCD01-2"}));
    token.Pull();
    EXPECT_EQ(Ids(), (Ids_{"ABCD01-2"}));
}

TEST_F(OrderTest, AModuleThatFails_TakesNoOtherTokenAlong) {
    AddFake("reports-too-many-objects");
    AddFake("works");
    Start();
    OpenFirstToken();
    EXPECT_EQ(Ids(), (Ids_{"ABCD01"}));
    EXPECT_NE(Log().find("cannot be read"), std::string::npos) << Log();
}

TEST_F(OrderTest, AnEmptyList_IsExplainedInTheLog) {
    AddFake("not-initialised");
    Start();
    EXPECT_TRUE(Slots().empty());
    EXPECT_NE(Log().find("token not initialised"), std::string::npos) << Log();
}
