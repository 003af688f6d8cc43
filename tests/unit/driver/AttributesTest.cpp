#include "Attributes.h"

#include "Pkcs11Error.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

using namespace tokendriver;

namespace {

std::optional<Bytes> FromHex(std::string_view text) {
    return BytesOfHexText(reinterpret_cast<const CK_BYTE*>(text.data()), text.size());
}

SearchTemplate Of(CK_ATTRIBUTE_TYPE type, std::string value) {
    const CK_ATTRIBUTE attribute{type, value.data(), value.size()};
    return {&attribute, 1};
}

std::string ValueOf(SearchTemplate wanted) {
    const CK_ATTRIBUTE only = wanted.Attributes().at(0);
    return {static_cast<const char*>(only.pValue), only.ulValueLen};
}

std::string Number(CK_ULONG number) {
    std::string bytes(sizeof number, '\0');
    std::memcpy(bytes.data(), &number, sizeof number);
    return bytes;
}

} // namespace

TEST(HexText, IsUpperCaseWithTwoDigitsAByte) {
    const Bytes bytes = {0x00, 0x0a, 0xff};
    EXPECT_EQ(HexText(bytes), "000AFF");
    EXPECT_EQ(HexText({}), "");
}

TEST(HexText, IsReadBackWithAndWithoutATerminatingZero) {
    using namespace std::string_view_literals;
    const Bytes bytes = {0x00, 0x0a, 0xff};
    EXPECT_EQ(FromHex("000AFF"), bytes);
    EXPECT_EQ(FromHex("000AFF\0"sv), bytes);
    EXPECT_EQ(FromHex("000aff"), bytes);
    EXPECT_EQ(FromHex(""), Bytes{});
    EXPECT_EQ(FromHex("\0"sv), Bytes{});
}

TEST(HexText, AllElseIsNoHex) {
    using namespace std::string_view_literals;
    for (const std::string_view text : {"0"sv, "0G"sv, "0A1"sv, " 0A"sv, "0A\0\0"sv, "A\0"sv, "\0\0"sv,
                                        "0A\0"
                                        "0A"sv})
        EXPECT_FALSE(FromHex(text)) << text;
}

TEST(SearchTemplate, FourByteNumbers_AreWidened) {
    EXPECT_EQ(ValueOf(Of(CKA_CLASS, std::string("\3\0\0\0", 4))), Number(CKO_PRIVATE_KEY));
    EXPECT_EQ(ValueOf(Of(CKA_KEY_TYPE, std::string(4, '\0'))), Number(CKK_RSA));
    EXPECT_EQ(ValueOf(Of(CKA_MODULUS_BITS, "\xff\xff\xff\xff")), Number(0xffffffff));
}

TEST(SearchTemplate, NumbersOfFullLength_PassAsTheyAre) {
    EXPECT_EQ(ValueOf(Of(CKA_CLASS, Number(CKO_DATA))), Number(CKO_DATA));
}

TEST(SearchTemplate, FourBytesThatAreNoNumber_PassAsTheyAre) {
    EXPECT_EQ(ValueOf(Of(CKA_LABEL, "card")), "card");
    EXPECT_EQ(ValueOf(Of(CKA_VALUE, "\1\2\3\4")), "\1\2\3\4");
}

TEST(SearchTemplate, AnIdIsItsRawBytesInside) {
    EXPECT_EQ(ValueOf(Of(CKA_ID, "4142")), "AB");
    EXPECT_EQ(ValueOf(Of(CKA_ID, std::string("4142\0", 5))), "AB");
}

TEST(SearchTemplate, AnIdThatIsNoHex_MatchesNothing) {
    EXPECT_TRUE(Of(CKA_ID, "no hex").MatchesNothing());
    EXPECT_FALSE(Of(CKA_ID, "4142").MatchesNothing());
    EXPECT_FALSE(Of(CKA_LABEL, "no hex").MatchesNothing());
}

TEST(SearchTemplate, KnowsTheClassAndIdThatItAsksFor) {
    EXPECT_EQ(Of(CKA_CLASS, std::string("\3\0\0\0", 4)).ObjectClass(), CKO_PRIVATE_KEY);
    EXPECT_EQ(Of(CKA_ID, "0102").Id(), (Bytes{1, 2}));
    EXPECT_FALSE(Of(CKA_LABEL, "x").ObjectClass());
}

TEST(SearchTemplate, MoreThanTheLimits_IsRefused) {
    std::vector<CK_ATTRIBUTE> many(kMaxTemplateAttributes + 1, CK_ATTRIBUTE{CKA_LABEL, nullptr, 0});
    EXPECT_NO_THROW(SearchTemplate(many.data(), kMaxTemplateAttributes));
    EXPECT_THROW(SearchTemplate(many.data(), many.size()), Pkcs11Error);
    EXPECT_NO_THROW(Of(CKA_VALUE, std::string(kMaxAttributeBytes, 'x')));
    EXPECT_THROW(Of(CKA_VALUE, std::string(kMaxAttributeBytes + 1, 'x')), Pkcs11Error);
}

TEST(SearchTemplate, NullPointersWithALength_AreRefused) {
    const CK_ATTRIBUTE attribute{CKA_LABEL, nullptr, 1};
    EXPECT_THROW(SearchTemplate(&attribute, 1), Pkcs11Error);
    EXPECT_THROW(SearchTemplate(nullptr, 1), Pkcs11Error);
    EXPECT_NO_THROW(SearchTemplate(nullptr, 0));
}
