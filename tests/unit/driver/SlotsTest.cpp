#include "DriverFixture.h"

#include <set>

namespace {

class SlotsTest : public DriverFixture {};

} // namespace

TEST_F(SlotsTest, TokensThatAreNotInitialisedOrCannotSign_AreNotShown) {
    AddFake("not-initialised");
    StartFake("cannot-sign-with-rsa");
    EXPECT_TRUE(Slots().empty());
}

TEST_F(SlotsTest, ATokenWithoutAUsersCertificate_IsNotUsedBesideOneThatHasOne) {
    AddFake("is-hardware-with-a-ca-certificate-only");
    AddFake("works");
    Start();
    EXPECT_EQ(Slots().size(), 1U);
    OpenFirstToken();
    certificates = ListCertificates();
    ASSERT_EQ(certificates.size(), 1U);
    EXPECT_EQ(certificates[0].idText, "ABCD01");
}

TEST_F(SlotsTest, WhereNoTokenHasAUsersCertificate_TheFirstIsUsed) {
    AddFake("cannot-sign-with-rsa");
    AddFake("is-hardware-with-a-ca-certificate-only");
    Start();
    OpenFirstToken();
    EXPECT_EQ(ListCertificates().size(), 1U);
}

TEST_F(SlotsTest, ATokenPluggedInLater_IsSeen) {
    FakeTokenState& token = AddFake("works");
    token.Pull();
    Start();
    EXPECT_TRUE(Slots().empty());
    token.PutBack();
    EXPECT_EQ(Slots().size(), 1U);
    token.Pull();
    EXPECT_TRUE(Slots().empty());
}

TEST_F(SlotsTest, ASlotKeepsItsIdentifier) {
    FakeTokenState& token = StartFake("works");
    const std::vector<CK_SLOT_ID> before = Slots();
    token.Pull();
    Slots();
    token.PutBack();
    EXPECT_EQ(Slots(), before);
}

TEST_F(SlotsTest, AllTokens_AreInOneSlot) {
    AddFake("reports-40-slots");
    Start();
    EXPECT_EQ(Slots().size(), 1U);
    OpenFirstToken();
    std::set<std::string>
        ids; // the tokens have one name, number and certificate: each is a token all the same
    for (const ListedCertificate& certificate : ListCertificates())
        ids.insert(certificate.idText);
    EXPECT_EQ(ids.size(), 40U);
}

TEST_F(SlotsTest, AListThatIsTooShort_IsToldItsLength) {
    AddFake("works");
    Start();
    CK_SLOT_ID slot = 0;
    CK_ULONG count = 0;
    EXPECT_EQ(Driver().GetSlotList(CK_TRUE, &slot, &count), CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(count, 1U);
}

TEST_F(SlotsTest, AListAskedForWithoutItsLengthFirst_IsFull) {
    StartFake("works");
    CK_SLOT_ID slot = 0;
    CK_ULONG count = 1;
    EXPECT_EQ(Driver().GetSlotList(CK_TRUE, &slot, &count), CKR_OK);
    EXPECT_EQ(count, 1U);
}

TEST_F(SlotsTest, ATokenPluggedInLater_IsSeenByOneWhoAsksForTheListAlone) {
    FakeTokenState& token = AddFake("works");
    token.Pull();
    Start();
    CK_SLOT_ID slot = 0;
    CK_ULONG count = 1;
    EXPECT_EQ(Driver().GetSlotList(CK_TRUE, &slot, &count), CKR_OK);
    EXPECT_EQ(count, 0U);
    token.PutBack();
    count = 1;
    EXPECT_EQ(Driver().GetSlotList(CK_TRUE, &slot, &count), CKR_OK);
    EXPECT_EQ(count, 1U);
}

TEST_F(SlotsTest, ASlowToken_IsListedOnceForLengthAndList) {
    const FakeTokenState& token = StartFake("slow-to-list");
    const unsigned before = token.listings;
    EXPECT_EQ(Slots().size(), 1U);
    EXPECT_EQ(token.listings, before + 2); // the module's own length and list
}

TEST_F(SlotsTest, UnknownSlots_AreRefused) {
    StartFake("works");
    Slots();
    for (const CK_SLOT_ID slot : {CK_SLOT_ID{0}, CK_SLOT_ID{2}, CK_SLOT_ID{7}, ~CK_SLOT_ID{0}})
        EXPECT_EQ(Driver().OpenSession(slot, CKF_SERIAL_SESSION, nullptr, nullptr, &session),
                  CKR_SLOT_ID_INVALID);
}

TEST_F(SlotsTest, ASessionOnATokenThatIsGone_IsRefused) {
    FakeTokenState& token = StartFake("works");
    const std::vector<CK_SLOT_ID> slots = Slots();
    token.Pull();
    EXPECT_EQ(Driver().OpenSession(slots[0], CKF_SERIAL_SESSION, nullptr, nullptr, &session),
              CKR_TOKEN_NOT_PRESENT);
}

TEST_F(SlotsTest, ParallelSessions_AreRefused) {
    StartFake("works");
    EXPECT_EQ(Driver().OpenSession(Slots().at(0), CKF_RW_SESSION, nullptr, nullptr, &session),
              CKR_SESSION_PARALLEL_NOT_SUPPORTED);
}

TEST_F(SlotsTest, AWriteProtectedToken_IsOpenedReadOnly) {
    GetFakeReadyToSign("read-only-token");
    EXPECT_TRUE(Sign("text"));
}
