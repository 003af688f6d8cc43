#include "CutShort.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

using namespace tokendriver;

namespace {

using Data = std::vector<std::uint8_t>;

const Data kContentType = {0x30, 0x18, 0x06, 0x09, 0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 0x01, 0x09, 0x03};
const Data kSha256Algorithm = {0x30, 0x0b, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x01};

/// `header`, then `begin` filled up with 'x' to `length` bytes.
Data Element(Data header, const Data& begin, std::size_t length) {
    header.insert(header.end(), begin.begin(), begin.end());
    header.resize(header.size() - begin.size() + length, 'x');
    return header;
}

Data Text(const std::string& text) { return {text.begin(), text.end()}; }

} // namespace

TEST(CutShort, SignedAttributes_AreHeldAgainstTheirLength) {
    const struct {
        const char* rule;
        Data header;
        std::size_t length;
        bool isCut;
    } cases[] = {
        {"whole", {0x31, 0x4b}, 0x4b, false},
        {"one byte short", {0x31, 0x4b}, 0x4a, true},
        {"cut behind the content type", {0x31, 0x4b}, kContentType.size(), true},
        {"with more behind", {0x31, 0x4b}, 0x4c, false},
        {"the last length in one octet", {0x31, 0x7f}, 127, false},
        {"the last length in one octet, cut", {0x31, 0x7f}, 126, true},
        {"the first length in two octets", {0x31, 0x81, 0x80}, 128, false},
        {"the first length in two octets, cut", {0x31, 0x81, 0x80}, 127, true},
        {"the last length in two octets", {0x31, 0x81, 0xff}, 255, false},
        {"the last length in two octets, cut", {0x31, 0x81, 0xff}, 254, true},
        {"a length in three octets", {0x31, 0x82, 0x01, 0x01}, 257, false},
        {"a length in three octets, cut", {0x31, 0x82, 0x01, 0x01}, 256, true},
        {"a length in four octets", {0x31, 0x83, 0x01, 0x01, 0x01}, 0x10101, false},
        {"a length in four octets, cut", {0x31, 0x83, 0x01, 0x01, 0x01}, 0x10100, true},
        {"a length in five octets, cut", {0x31, 0x84, 0xff, 0xff, 0xff, 0xff}, 300, true},
        {"an indefinite length is no DER", {0x31, 0x80}, 20, false},
    };
    for (const auto& it : cases)
        EXPECT_EQ(IsCutSignedAttributes(Element(it.header, kContentType, it.length)), it.isCut) << it.rule;
}

TEST(CutShort, ASetCutWithinItsLengthOctets_IsRefused) {
    EXPECT_TRUE(IsCutSignedAttributes(Data{0x31, 0x82, 0x01})); // 31 82 01 00: 256 bytes of attributes
    EXPECT_TRUE(IsCutSignedAttributes(Data{0x31, 0x82}));
}

TEST(CutShort, ASetOfSomethingElse_IsSigned) {
    Data other = kContentType;
    other.back() = 0x04; // messageDigest
    EXPECT_FALSE(IsCutSignedAttributes(Element({0x31, 0x4b}, other, 0x20)));
}

TEST(CutShort, DigestInfoOneByteShort_IsRefused) {
    EXPECT_FALSE(IsCutDigestInfo(Element({0x30, 0x2f}, kSha256Algorithm, 0x2f)));
    EXPECT_TRUE(IsCutDigestInfo(Element({0x30, 0x2f}, kSha256Algorithm, 0x2e)));
    EXPECT_TRUE(IsCutDigestInfo(Element({0x30, 0x2f}, kSha256Algorithm, kSha256Algorithm.size())));
}

TEST(CutShort, DigestInfoWithAnEmptyDigestCutAtItsLength_IsRefused) {
    Data info = kSha256Algorithm;
    info.push_back(0x04); // OCTET STRING of 0 bytes: the 0 is gone
    EXPECT_TRUE(IsCutDigestInfo(Element({0x30, 0x0f}, info, info.size())));
}

TEST(CutShort, DigestInfoWithNullParametersCutAtTheirLength_IsRefused) {
    const Data info = {0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86,
                       0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x01, 0x05};
    EXPECT_TRUE(IsCutDigestInfo(info));
}

TEST(CutShort, Texts_AreNeverTakenForAStructure) {
    for (const char* text :
         {"", "0", "1", "0A", "1K", "0A1B2C", "1K0", "1K0\t", "0000000000000000", "1111111111",
          "0\xc2\x80 text", "1\xc3\xa9t\xc3\xa9", "0/0\x0b", "1\xe2\x82\xac"}) {
        EXPECT_FALSE(IsCutSignedAttributes(Text(text))) << text;
        EXPECT_FALSE(IsCutDigestInfo(Text(text))) << text;
    }
}

TEST(CutShort, EachMechanismLooksForWhatItSigns) {
    const Data attributes = Element({0x31, 0x4b}, kContentType, 0x20);
    const Data info = Element({0x30, 0x2f}, kSha256Algorithm, 0x20);
    for (const CK_MECHANISM_TYPE hashing : {CKM_SHA256_RSA_PKCS, CKM_SHA384_RSA_PKCS, CKM_SHA512_RSA_PKCS}) {
        EXPECT_TRUE(IsCutShort(hashing, attributes));
        EXPECT_FALSE(IsCutShort(hashing, info));
    }
    EXPECT_TRUE(IsCutShort(CKM_RSA_PKCS, info));
    EXPECT_FALSE(IsCutShort(CKM_RSA_PKCS, attributes));
}
