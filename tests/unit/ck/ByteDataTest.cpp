#include "ck/CkBinData.h"
#include "ck/CkByteData.h"

#include "support/Bytes.h"

#include <gtest/gtest.h>

#include <random>

namespace {

using namespace std::string_literals;

std::string BytesOf(const CkByteData& data) {
    return {reinterpret_cast<const char*>(data.getRange(0, data.getSize())), data.getSize()};
}

std::string Decoded(std::string_view text, const char* encoding = "Base64") {
    CkByteData data;
    data.appendEncoded(text, encoding);
    return BytesOf(data);
}

std::string RandomBytes(std::size_t size) {
    std::mt19937 random(static_cast<unsigned>(size));
    std::string bytes(size, '\0');
    for (char& c : bytes)
        c = static_cast<char>(random());
    return bytes;
}

TEST(CkByteData, AppendStr_TakesTheBytesAsTheyAreWithoutATerminator) {
    CkByteData data;
    data.appendStr("ab\0c"s);
    data.appendStr("\xFF");
    EXPECT_EQ(BytesOf(data), "ab\0c\xFF"s);
}

TEST(CkByteData, GetData_IsTerminatedRightBehindTheLastByte) {
    CkByteData data;
    EXPECT_STREQ(data.getData(), "");
    data.appendStr("abc");
    EXPECT_EQ(data.getData()[3], '\0');
    EXPECT_STREQ(data.getData(), "abc");
}

TEST(CkByteData, GetRange_IsNullWhenTheRangeDoesNotLieInside) {
    CkByteData data;
    data.appendStr("abc");
    EXPECT_EQ(*data.getRange(1, 2), 'b');
    EXPECT_NE(data.getRange(3, 0), nullptr);
    EXPECT_EQ(data.getRange(4, 0), nullptr);
    EXPECT_EQ(data.getRange(1, 3), nullptr);
    EXPECT_EQ(data.getRange(1, SIZE_MAX), nullptr);
    EXPECT_NE(CkByteData().getRange(0, 0), nullptr);
}

TEST(CkByteData, GetRange_HasAZeroByteBehindTheLastByte) {
    CkByteData data;
    data.appendStr("\x01\x02");
    EXPECT_EQ(data.getRange(0, 2)[2], 0);
}

TEST(CkByteData, Base64_IsPaddedAndOnOneLine) {
    // RFC 4648 section 10, and a text that other writers would break into lines.
    const std::vector<std::pair<std::string, std::string>> vectors = {{"", ""},
                                                                      {"f", "Zg=="},
                                                                      {"fo", "Zm8="},
                                                                      {"foo", "Zm9v"},
                                                                      {"foob", "Zm9vYg=="},
                                                                      {"fooba", "Zm9vYmE="},
                                                                      {"foobar", "Zm9vYmFy"}};
    for (const auto& [bytes, text] : vectors) {
        CkByteData data;
        data.appendStr(bytes);
        EXPECT_EQ(data.getEncoded("Base64"), text);
        EXPECT_EQ(Decoded(text), bytes);
    }
    CkByteData data;
    data.appendStr(std::string(300, '\0'));
    EXPECT_EQ(data.getEncoded("Base64"), std::string(400, 'A'));
}

TEST(CkByteData, Base64_AgreesWithOpenSslForEverySizeAroundItsBlocks) {
    for (std::size_t size :
         {0, 1, 2, 3, 4, 5, 6, 7, 100, 12287, 12288, 12289, 12290, 24576, 24577, 100'000}) {
        const std::string bytes = RandomBytes(size);
        CkByteData data;
        data.appendStr(bytes);
        EXPECT_EQ(data.getEncoded("Base64"), ToBase64(bytes)) << size;
        EXPECT_EQ(Decoded(ToBase64(bytes)), bytes) << size;
    }
}

TEST(CkByteData, Base64In_SkipsWhiteSpaceWhereverItStands) {
    EXPECT_EQ(Decoded(" Z m\t9\r\nv\vYm\fFy\n"), "foobar");
    const std::string bytes = RandomBytes(1000);
    std::string lines;
    for (const char c : ToBase64(bytes)) {
        lines += c;
        if (lines.size() % 65 == 64)
            lines += '\n';
    }
    EXPECT_EQ(Decoded(lines), bytes);
}

TEST(CkByteData, Base64In_EndsAtWhatCannotBeDecodedAndKeepsTheWholeBytesBefore) {
    EXPECT_EQ(Decoded("Zm9v!Zm9v"), "foo");
    EXPECT_EQ(Decoded("Zm9vYg==Zm9v"), "foob");
    EXPECT_EQ(Decoded("Zm9v\0Zm9v"s), "foo");
    EXPECT_EQ(Decoded("Zm9v\xC3\xA9"), "foo");
    EXPECT_EQ(Decoded("Zm9vYm-v"), "foob") << "the URL alphabet is another one";
    EXPECT_EQ(Decoded("="), "");
}

TEST(CkByteData, Base64In_NeedsNoPadding) {
    EXPECT_EQ(Decoded("YWI"), "ab");
    EXPECT_EQ(Decoded("YQ"), "a");
    EXPECT_EQ(Decoded("Y"), "") << "six bits are no byte";
    EXPECT_EQ(Decoded("Y W\nI"), "ab");
}

TEST(CkByteData, Hex_IsUpperCaseWithoutSeparatorsAndReadInBothCases) {
    CkByteData data;
    data.appendStr("\x00\x0F\xAB\xFF"s);
    EXPECT_EQ(data.getEncoded("Hex"), "000FABFF");
    EXPECT_EQ(Decoded("000fabFF", "Hex"), "\x00\x0F\xAB\xFF"s);
    EXPECT_EQ(Decoded(" 0 0\n0FA", "Hex"), "\x00\x0F"s) << "half a byte at the end is none";
    EXPECT_EQ(Decoded("41x42", "Hex"), "A");
}

TEST(CkByteData, AnUnknownEncoding_GivesNothing) {
    CkByteData data;
    data.appendStr("abc");
    EXPECT_EQ(data.getEncoded("base64"), "");
    EXPECT_EQ(data.getEncoded(nullptr), "");
    data.appendEncoded("YWI=", "quoted-printable");
    data.appendEncoded("YWI=", nullptr);
    EXPECT_EQ(BytesOf(data), "abc");
}

TEST(CkByteData, AppendEncoded_AppendsBehindWhatIsThere) {
    CkByteData data;
    data.appendStr("x");
    data.appendEncoded("YWI=", "Base64");
    data.appendEncoded("63", "Hex");
    EXPECT_EQ(BytesOf(data), "xabc");
}

TEST(CkBinData, GetEncoded_GivesAllTheAppendedBytes) {
    CkBinData data;
    EXPECT_EQ(data.getEncoded("Base64"), "");
    for (const int byte : {0x00, 0xFF, 0x10})
        data.AppendByte(static_cast<unsigned char>(byte));
    EXPECT_EQ(data.getEncoded("Hex"), "00FF10");
    EXPECT_EQ(data.getEncoded("Base64"), "AP8Q");
}

} // namespace
