#include "ck/CkAsn.h"

#include "support/Bytes.h"

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

std::string DerOf(const CkAsn& asn) { return asn.getEncodedDer("Hex"); }

TEST(CkAsn, ANewOne_IsAnEmptySequence) { EXPECT_EQ(DerOf(CkAsn()), "3000"); }

TEST(CkAsn, AppendSetRAndAppendSequenceR_ReturnTheChildTheyAppended) {
    CkAsn parent;
    const std::unique_ptr<CkAsn> set = parent.AppendSetR();
    const std::unique_ptr<CkAsn> sequence = set->AppendSequenceR();
    EXPECT_TRUE(sequence->AppendOid("2.5.4.3"));
    EXPECT_EQ(DerOf(*sequence), "30050603550403");
    EXPECT_EQ(DerOf(*set), "310730050603550403");
    EXPECT_EQ(DerOf(parent), "3009310730050603550403");
}

TEST(CkAsn, AChild_LivesOnWithoutItsTree) {
    auto parent = std::make_unique<CkAsn>();
    const std::unique_ptr<CkAsn> set = parent->AppendSetR();
    parent.reset();
    EXPECT_TRUE(set->AppendOctets("AQ==", "Base64"));
    EXPECT_EQ(DerOf(*set), "3103040101");
}

TEST(CkAsn, AppendOid_TakesDottedFormsOnly) {
    for (const char* oid : {"0.0", "1.2.840.113549.1.1.1", "2.999.3",
                            "2.25.329800735698586629295641978511506172918", "2.16.840.1.101.3.4.2.1"}) {
        CkAsn asn;
        EXPECT_TRUE(asn.AppendOid(oid)) << oid;
        CkAsn again;
        again.LoadAsnXml(asn.asnToXml());
        EXPECT_EQ(asn.asnToXml(), "<sequence><oid>"s + oid + "</oid></sequence>");
    }
    for (const char* oid :
         {"", "1", "1.", ".1", "1..2", "3.1", "0.40", "1.40", "sha256", "1.2.x", "1 2 3", "1.2.-3", " 1.2"}) {
        CkAsn asn;
        EXPECT_FALSE(asn.AppendOid(oid)) << oid;
        EXPECT_EQ(DerOf(asn), "3000") << oid;
    }
}

TEST(CkAsn, AppendOctets_AppendsWhatTheTextDecodesTo) {
    CkAsn asn;
    EXPECT_TRUE(asn.AppendOctets("YW\nI", "Base64"));
    EXPECT_TRUE(asn.AppendOctets("00FF", "Hex"));
    EXPECT_TRUE(asn.AppendOctets("", "Base64"));
    EXPECT_EQ(DerOf(asn), "300A04026162040200FF0400");
}

TEST(CkAsn, TheDigestInfoOfASha256Digest_Has49Bytes) {
    CkAsn digestInfo;
    digestInfo.AppendSequenceR()->AppendOid("2.16.840.1.101.3.4.2.1");
    digestInfo.AppendOctets(ToBase64(std::string(32, '\xAA')), "Base64");
    CkByteData der;
    EXPECT_TRUE(digestInfo.GetBinaryDer(der));
    ASSERT_EQ(der.getSize(), 49U);
    EXPECT_EQ(der.getEncoded("Hex").substr(0, 12), "302F300B0609");
}

TEST(CkAsn, TheSignedAttributesOfASha256Digest_Have77Bytes) {
    CkAsn parent;
    const std::unique_ptr<CkAsn> attributes = parent.AppendSetR();
    const std::unique_ptr<CkAsn> type = attributes->AppendSequenceR();
    type->AppendOid("1.2.840.113549.1.9.3");
    type->AppendSetR()->AppendOid("1.2.840.113549.1.7.1");
    const std::unique_ptr<CkAsn> digest = attributes->AppendSequenceR();
    digest->AppendOid("1.2.840.113549.1.9.4");
    digest->AppendSetR()->AppendOctets(ToBase64(std::string(32, 'd')), "Base64");
    CkByteData der;
    attributes->GetBinaryDer(der);
    ASSERT_EQ(der.getSize(), 77U);
    EXPECT_EQ(der.getEncoded("Hex").substr(0, 12), "314B30180609");
}

TEST(CkAsn, GetBinaryDer_AppendsToWhatIsThere) {
    CkByteData der;
    der.appendStr("x");
    CkAsn().GetBinaryDer(der);
    EXPECT_EQ(der.getEncoded("Hex"), "783000");
}

TEST(CkAsn, GetSubItem_GivesTheChildOrNull) {
    CkAsn asn;
    ASSERT_TRUE(asn.LoadEncoded(ToBase64(FromHex("3006 020105 040141")), "Base64"));
    EXPECT_EQ(DerOf(*asn.GetSubItem(0)), "020105");
    EXPECT_EQ(DerOf(*asn.GetSubItem(1)), "040141");
    EXPECT_EQ(asn.GetSubItem(2), nullptr);
    EXPECT_EQ(asn.GetSubItem(-1), nullptr);
    EXPECT_EQ(asn.GetSubItem(0)->GetSubItem(0), nullptr);
}

TEST(CkAsn, GetSubItem_SharesItsNodeWithTheTree) {
    CkAsn asn;
    asn.AppendSetR();
    asn.GetSubItem(0)->AppendOid("2.5.4.3");
    EXPECT_EQ(DerOf(asn), "300731050603550403");
}

TEST(CkAsn, LoadEncoded_ReplacesTheContentAndEmptiesItWhenItFails) {
    CkAsn asn;
    ASSERT_TRUE(asn.LoadEncoded("AgEF", "Base64"));
    EXPECT_EQ(DerOf(asn), "020105");
    ASSERT_TRUE(asn.LoadEncoded("020106", "Hex"));
    EXPECT_EQ(DerOf(asn), "020106");
    EXPECT_FALSE(asn.LoadEncoded("AgEF", "base32"));
    EXPECT_EQ(DerOf(asn), "3000");
}

TEST(CkAsn, LoadEncoded_LeavesItemsThatWereTakenOutBeforeAlone) {
    CkAsn asn;
    ASSERT_TRUE(asn.LoadEncoded("3003020105", "Hex"));
    const std::unique_ptr<CkAsn> item = asn.GetSubItem(0);
    ASSERT_TRUE(asn.LoadEncoded("3003020106", "Hex"));
    EXPECT_EQ(DerOf(*item), "020105");
}

TEST(CkAsn, GetEncodedDer_IsOneLineOfBase64WhereverItsPartsEnd) {
    // The parts come one after the other; three bytes make a group.
    for (std::size_t first = 0; first < 7; ++first)
        for (std::size_t second = 0; second < 7; ++second) {
            CkAsn asn;
            asn.AppendOctets(ToBase64(std::string(first, 'a')), "Base64");
            asn.AppendOctets(ToBase64(std::string(second, 'b')), "Base64");
            CkByteData der;
            asn.GetBinaryDer(der);
            ASSERT_EQ(
                asn.getEncodedDer("Base64"),
                ToBase64({reinterpret_cast<const char*>(der.getRange(0, der.getSize())), der.getSize()}));
        }
    EXPECT_EQ(CkAsn().getEncodedDer("rot13"), "");
}

} // namespace
