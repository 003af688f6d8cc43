#include "DriverFixture.h"

namespace {

class SlotsTest : public DriverFixture {
protected:
    /// The id's text of the first certificate on the token that the host uses; empty when it has none.
    std::string FirstId() {
        OpenFirstToken();
        certificates = ListCertificates();
        return certificates.empty() ? "" : certificates[0].idText;
    }
};

} // namespace

TEST_F(SlotsTest, TokensThatAreNotInitialisedOrCannotSign_AreNotShown) {
    AddFake("not-initialised");
    StartFake("cannot-sign-with-rsa");
    EXPECT_TRUE(Slots().empty());
}

TEST_F(SlotsTest, ATokenWithAUsersCertificate_ComesFirst) {
    AddFake("is-hardware-with-a-ca-certificate-only");
    StartFake("works");
    EXPECT_EQ(Slots().size(), 2U);
    EXPECT_EQ(FirstId(), "ABCD01");
}

TEST_F(SlotsTest, HardwareComesBeforeSoftware) {
    AddFake("works", "priority: 9\n"); // first in p11-kit's order
    const FakeTokenState& card = StartFake("is-hardware");
    EXPECT_EQ(Slots().size(), 2U);
    OpenFirstToken();
    Login();
    EXPECT_TRUE(card.loggedIn);
}

TEST_F(SlotsTest, AmongEqualsP11KitsOrderDecides) {
    FakeTokenState& first = AddFake("works", "priority: 9\n");
    FakeTokenState& second = AddFake("lacks-hash-mechanisms", "priority: 1\n");
    Start();
    OpenFirstToken();
    Login();
    EXPECT_TRUE(first.loggedIn);
    EXPECT_FALSE(second.loggedIn);
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

TEST_F(SlotsTest, AllOf40Slots_AreShown) {
    StartFake("reports-40-slots");
    const std::vector<CK_SLOT_ID> slots = Slots();
    EXPECT_EQ(slots.size(), 40U);
    for (const CK_SLOT_ID slot : slots)
        EXPECT_EQ(Driver().OpenSession(slot, CKF_SERIAL_SESSION, nullptr, nullptr, &session), CKR_OK);
}

TEST_F(SlotsTest, TokensOfTheSameNameAndNumber_AreToldApartByTheirSlots) {
    const FakeTokenState& token = StartFake("reports-40-slots");
    const std::vector<CK_SLOT_ID> slots = Slots();
    for (const std::size_t i : {0U, 7U, 39U}) {
        EXPECT_EQ(Driver().OpenSession(slots.at(i), CKF_SERIAL_SESSION, nullptr, nullptr, &session), CKR_OK);
        EXPECT_EQ(token.openedSlot, 1000 + 3 * i);
    }
}

TEST_F(SlotsTest, AListThatIsTooShort_IsToldItsLength) {
    StartFake("reports-40-slots");
    Slots();
    std::vector<CK_SLOT_ID> slots(39);
    CK_ULONG count = slots.size();
    EXPECT_EQ(Driver().GetSlotList(CK_TRUE, slots.data(), &count), CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(count, 40U);
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
