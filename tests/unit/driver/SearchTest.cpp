#include "DriverFixture.h"

#include <algorithm>
#include <array>
#include <set>

namespace {

class SearchTest : public DriverFixture {
protected:
    std::vector<CK_OBJECT_HANDLE> Find(std::vector<CK_ATTRIBUTE> wanted, std::size_t atOnce = 10) {
        EXPECT_EQ(Driver().FindObjectsInit(session, wanted.data(), wanted.size()), CKR_OK);
        std::vector<CK_OBJECT_HANDLE> found;
        for (CK_ULONG count = 1; count > 0 && !HasFailure();) {
            std::vector<CK_OBJECT_HANDLE> some(atOnce);
            EXPECT_EQ(Driver().FindObjects(session, some.data(), some.size(), &count), CKR_OK);
            found.insert(found.end(), some.begin(), some.begin() + static_cast<std::ptrdiff_t>(count));
        }
        EXPECT_EQ(Driver().FindObjectsFinal(session), CKR_OK);
        return found;
    }
};

CK_ULONG certificateClass = CKO_CERTIFICATE;

} // namespace

TEST_F(SearchTest, TheHostsTemplates_FindCertificateAndKey) {
    OpenFake("works");
    certificates = ListCertificates();
    ASSERT_EQ(certificates.size(), 1U);
    EXPECT_EQ(certificates[0].idText, "ABCD01");
    Login();
    EXPECT_NE(FindKey("ABCD01"), 0U);
}

TEST_F(SearchTest, AnIdThatIsNoHex_MatchesNothingAndIsNoError) {
    OpenFake("works");
    Login();
    for (const char* id : {"ABCD0", "no hex", "47DEQpj8HBSa+/TImW+5JCeuQeRkm5NMpJWZG3hSuFU="})
        EXPECT_EQ(FindKey(id), 0U) << id;
    EXPECT_NE(FindKey("ABCD01"), 0U);
}

TEST_F(SearchTest, AnIdIsFoundWithAndWithoutTerminatingZero) {
    OpenFake("works");
    std::string id("ABCD01\0", 7);
    EXPECT_EQ(Find({{CKA_ID, id.data(), 7}}).size(), 1U);
    EXPECT_EQ(Find({{CKA_ID, id.data(), 6}}).size(), 1U);
    EXPECT_EQ(Find({{CKA_ID, id.data(), 4}}).size(), 0U);
}

TEST_F(SearchTest, AnUnfinishedSearch_IsClosedWhenANewOneBegins) {
    OpenFake("works");
    ASSERT_EQ(Driver().FindObjectsInit(session, nullptr, 0), CKR_OK);
    EXPECT_EQ(Find({{CKA_CLASS, &certificateClass, 8}}).size(), 1U);
    Login();
    EXPECT_EQ(FindKey("00"), 0U); // left active, as the host leaves it
    EXPECT_EQ(FindKey("00"), 0U);
    EXPECT_NE(FindKey("ABCD01"), 0U);
}

TEST_F(SearchTest, WithoutASearch_ThereIsNothingToFetchOrFinish) {
    OpenFake("works");
    CK_OBJECT_HANDLE object = 0;
    CK_ULONG count = 0;
    EXPECT_EQ(Driver().FindObjects(session, &object, 1, &count), CKR_OPERATION_NOT_INITIALIZED);
    EXPECT_EQ(Driver().FindObjectsFinal(session), CKR_OPERATION_NOT_INITIALIZED);
}

TEST_F(SearchTest, AnUnknownSession_IsRefused) {
    OpenFake("works");
    EXPECT_EQ(Driver().FindObjectsInit(session + 1, nullptr, 0), CKR_SESSION_HANDLE_INVALID);
    EXPECT_EQ(Driver().FindObjectsInit(0, nullptr, 0), CKR_SESSION_HANDLE_INVALID);
}

TEST_F(SearchTest, IdsWithZeroBytes_AreToldApart) {
    OpenFake("ids-with-zero-bytes");
    certificates = ListCertificates();
    std::set<std::string> ids;
    for (const ListedCertificate& certificate : certificates)
        ids.insert(certificate.idText);
    EXPECT_EQ(ids, (std::set<std::string>{"4100", "410001", "410002", "00"}));
    Login();
    std::set<CK_OBJECT_HANDLE> keys;
    for (const std::string& id : ids)
        keys.insert(FindKey(id));
    EXPECT_EQ(keys.size(), 4U);
    EXPECT_FALSE(keys.contains(0));
}

TEST_F(SearchTest, AThousandObjects_AreAllFoundOnce) {
    OpenFake("holds-1000-objects");
    EXPECT_EQ(ListCertificates().size(), 500U);
    Login();
    EXPECT_NE(FindKey("7F01F3"), 0U); // the 500th
    for (const std::size_t atOnce : {1U, 7U, 256U, 2000U}) {
        std::vector<CK_OBJECT_HANDLE> found = Find({}, atOnce);
        std::sort(found.begin(), found.end());
        EXPECT_EQ(std::unique(found.begin(), found.end()), found.end()) << "some twice";
        EXPECT_EQ(found.size(), 1000U);
    }
}

TEST_F(SearchTest, TheSameObject_HasTheSameHandle) {
    OpenFake("holds-1000-objects");
    const std::vector<CK_OBJECT_HANDLE> once = Find({{CKA_CLASS, &certificateClass, 8}});
    EXPECT_EQ(Find({{CKA_CLASS, &certificateClass, 4}}, 1), once);
}

TEST_F(SearchTest, AnIdsBuffer_IsSizedAndFilledByTheStandardsRules) {
    OpenFake("works");
    const CK_OBJECT_HANDLE certificate = ListCertificates().at(0).handle;
    CK_ATTRIBUTE id{CKA_ID, nullptr, 0};
    EXPECT_EQ(Driver().GetAttributeValue(session, certificate, &id, 1), CKR_OK);
    EXPECT_EQ(id.ulValueLen, 6U);

    std::string text = "........";
    for (const CK_ULONG capacity : {0U, 1U, 5U}) {
        id = {CKA_ID, text.data(), capacity};
        EXPECT_EQ(Driver().GetAttributeValue(session, certificate, &id, 1), CKR_BUFFER_TOO_SMALL);
        EXPECT_EQ(id.ulValueLen, CK_UNAVAILABLE_INFORMATION);
    }
    EXPECT_EQ(text, "........");
    for (const CK_ULONG capacity : {6U, 7U, 8U}) {
        id = {CKA_ID, text.data(), capacity};
        EXPECT_EQ(Driver().GetAttributeValue(session, certificate, &id, 1), CKR_OK);
        EXPECT_EQ(id.ulValueLen, 6U);
        EXPECT_EQ(text, "ABCD01..");
    }
}

TEST_F(SearchTest, OneAttributeThatIsMissing_LeavesTheOthersAnswered) {
    OpenFake("works");
    const CK_OBJECT_HANDLE certificate = ListCertificates().at(0).handle;
    std::string text = "......";
    std::array wanted = {CK_ATTRIBUTE{CKA_MODULUS, nullptr, 0},
                         CK_ATTRIBUTE{CKA_ID, text.data(), text.size()}};
    EXPECT_EQ(Driver().GetAttributeValue(session, certificate, wanted.data(), wanted.size()),
              CKR_ATTRIBUTE_TYPE_INVALID);
    EXPECT_EQ(wanted[0].ulValueLen, CK_UNAVAILABLE_INFORMATION);
    EXPECT_EQ(text, "ABCD01");
}

TEST_F(SearchTest, UnknownObjects_AreRefused) {
    OpenFake("works");
    CK_ATTRIBUTE id{CKA_ID, nullptr, 0};
    for (const CK_OBJECT_HANDLE object : {CK_OBJECT_HANDLE{0}, CK_OBJECT_HANDLE{1}, CK_OBJECT_HANDLE{1000}})
        EXPECT_EQ(Driver().GetAttributeValue(session, object, &id, 1), CKR_OBJECT_HANDLE_INVALID);
}

TEST_F(SearchTest, AbsurdLengthsOfAModule_DoNotReachTheHost) {
    OpenFake("reports-absurd-lengths");
    const CK_OBJECT_HANDLE certificate = Find({}).at(0);
    std::string text = "......";
    for (CK_ATTRIBUTE attribute :
         {CK_ATTRIBUTE{CKA_VALUE, nullptr, 0}, CK_ATTRIBUTE{CKA_ID, nullptr, 0},
          CK_ATTRIBUTE{CKA_ID, text.data(), 6}, CK_ATTRIBUTE{CKA_LABEL, text.data(), 6}}) {
        EXPECT_EQ(Driver().GetAttributeValue(session, certificate, &attribute, 1), CKR_DEVICE_ERROR);
        EXPECT_EQ(attribute.ulValueLen, CK_UNAVAILABLE_INFORMATION);
    }
}

TEST_F(SearchTest, MoreObjectsThanAskedFor_AreAnErrorAndNoneReachesTheHost) {
    OpenFake("reports-too-many-objects");
    EXPECT_EQ(Driver().FindObjectsInit(session, nullptr, 0), CKR_DEVICE_ERROR);
    std::array<CK_OBJECT_HANDLE, 4> found{};
    CK_ULONG count = 0;
    EXPECT_EQ(Driver().FindObjects(session, found.data(), found.size(), &count),
              CKR_OPERATION_NOT_INITIALIZED);
}
