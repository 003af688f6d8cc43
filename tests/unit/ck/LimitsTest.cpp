// Inputs that are large or deep on purpose: each has to be answered, and soon.

#include "ck/CkAsn.h"
#include "ck/CkCert.h"
#include "ck/CkJsonObject.h"
#include "ck/CkXml.h"

#include "support/Bytes.h"

#include <gtest/gtest.h>

#include <ctime>

namespace {

/// Processor time, which other programs do not lengthen: far above what the inputs take under a sanitizer,
/// far below what anything quadratic takes.
constexpr double kSoonInSeconds = 20;

class Limits : public testing::Test {
protected:
    ~Limits() override {
        EXPECT_LT(static_cast<double>(std::clock() - start_) / CLOCKS_PER_SEC, kSoonInSeconds);
    }

private:
    std::clock_t start_ = std::clock();
};

std::string Repeated(std::string_view piece, std::size_t count) {
    std::string text;
    text.reserve(piece.size() * count);
    for (std::size_t i = 0; i < count; ++i)
        text += piece;
    return text;
}

TEST_F(Limits, Json_NestedArraysOf200000Levels_LoadAndComeOut) {
    const std::string nested = Repeated("[", 200'000) + Repeated("]", 200'000);
    CkJsonObject object;
    ASSERT_TRUE(object.Load("{\"a\":" + nested + "}")) << object.lastErrorText();
    const CkJsonObject copy = object;
    EXPECT_EQ(copy.stringOf("a"), nested);
    EXPECT_EQ(copy.emit(), "{\"a\":" + nested + "}");
}

TEST_F(Limits, Json_NestingThatNeverEnds_IsRefused) {
    CkJsonObject object;
    EXPECT_FALSE(object.Load(Repeated("[", 1'000'000)));
    EXPECT_FALSE(object.Load(Repeated("{\"a\":", 1'000'000)));
    EXPECT_FALSE(object.lastErrorText().empty());
}

TEST_F(Limits, Json_AMillionMembers_Load) {
    std::string json = "{";
    for (int i = 0; i < 1'000'000; ++i)
        json += "\"m" + std::to_string(i) + "\":0,";
    json.back() = '}';
    CkJsonObject object;
    ASSERT_TRUE(object.Load(json)) << object.lastErrorText();
    EXPECT_EQ(object.IndexOf("m999999"), 999'999);
    EXPECT_EQ(object.emit(), json);
}

TEST_F(Limits, Json_NestedObjectsAndMembersFurtherDown_LoadAndComeOut) {
    for (const std::string& json : {Repeated("{\"a\":", 200'000) + "{}" + Repeated("}", 200'000),
                                    "{\"a\":{" + Repeated("\"m\":0,", 1'000'000) + "\"m\":0}}"}) {
        CkJsonObject object;
        ASSERT_TRUE(object.Load(json)) << object.lastErrorText();
        EXPECT_EQ(object.emit(), json);
    }
}

TEST_F(Limits, Json_AStringOf32MiB_ComesOutAsItWentIn) {
    const std::string text = Repeated("0123456789abcdef", 2 * 1024 * 1024);
    CkJsonObject object;
    ASSERT_TRUE(object.Load("{\"hash\":\"" + text + "\",\"nonce\":\"1\"}"));
    EXPECT_TRUE(object.stringOf("hash") == text);
    EXPECT_EQ(object.stringOf("nonce"), "1");
}

TEST_F(Limits, Json_AnEndlessString_IsRefusedInFewWords) {
    CkJsonObject object;
    EXPECT_FALSE(object.Load("{\"hash\":\"" + std::string(32 * 1024 * 1024, 'x')));
    EXPECT_LT(object.lastErrorText().size(), 400U);
}

/// SEQUENCEs one in the other, the innermost empty.
std::string NestedDer(int levels) {
    std::string der;
    for (int i = 0; i < levels; ++i)
        der = DerValue(0x30, der);
    return der;
}

TEST_F(Limits, Asn_128LevelsLoadAnd129DoNot) {
    CkAsn asn;
    EXPECT_TRUE(asn.LoadEncoded(ToBase64(NestedDer(128)), "Base64"));
    EXPECT_EQ(FromBase64(asn.getEncodedDer("Base64")), NestedDer(128));
    CkAsn fromXml;
    EXPECT_TRUE(fromXml.LoadAsnXml(asn.asnToXml()));
    EXPECT_EQ(FromBase64(fromXml.getEncodedDer("Base64")), NestedDer(128));
    EXPECT_FALSE(asn.LoadEncoded(ToBase64(NestedDer(129)), "Base64"));
    EXPECT_FALSE(asn.LoadAsnXml(Repeated("<set>", 129) + Repeated("</set>", 129)));
}

TEST_F(Limits, Asn_200000LevelsAreRefused) {
    CkAsn asn;
    EXPECT_FALSE(asn.LoadEncoded(ToBase64(Repeated("\x30\x84\x7F\xFF\xFF\xFF", 200'000)), "Base64"));
    EXPECT_FALSE(asn.LoadAsnXml(Repeated("<set>", 200'000) + Repeated("</set>", 200'000)));
}

TEST_F(Limits, Asn_MoreThanAMillionValuesAreRefused) {
    const std::string der = DerValue(0x30, Repeated(std::string_view("\x05\x00", 2), 1'000'000));
    CkAsn asn;
    EXPECT_FALSE(asn.LoadEncoded(ToBase64(der), "Base64"));
    EXPECT_EQ(asn.getEncodedDer("Hex"), "3000");
    EXPECT_FALSE(asn.LoadAsnXml("<set>" + Repeated("<null/>", 1'000'000) + "</set>"));
}

TEST_F(Limits, Asn_HalfAMillionValuesGoThroughXml) {
    const std::string der = DerValue(0x30, Repeated(std::string_view("\x05\x00", 2), 500'000));
    CkAsn asn, again;
    ASSERT_TRUE(asn.LoadEncoded(ToBase64(der), "Base64"));
    ASSERT_TRUE(again.LoadAsnXml(asn.asnToXml()));
    EXPECT_TRUE(FromBase64(again.getEncodedDer("Base64")) == der);
}

TEST_F(Limits, Asn_ALengthThatPromises4GiB_IsRefused) {
    CkAsn asn;
    for (const char* der : {"04 84 FF FF FF FF 00", "30 84 FF FF FF FF 00", "04 85 01 00 00 00 00 00",
                            "04 88 FF FF FF FF FF FF FF FF 00", "04 FE 00"})
        EXPECT_FALSE(asn.LoadEncoded(ToBase64(FromHex(der)), "Base64")) << der;
}

TEST_F(Limits, Asn_AnObjectIdentifierOfAMillionOctets_GoesThroughXml) {
    const std::string der = DerValue(6, std::string(1'000'000, '\xFF') + '\x01');
    CkAsn asn, again;
    ASSERT_TRUE(asn.LoadEncoded(ToBase64(der), "Base64"));
    ASSERT_TRUE(again.LoadAsnXml(asn.asnToXml()));
    EXPECT_TRUE(FromBase64(again.getEncodedDer("Base64")) == der);
    EXPECT_FALSE(asn.AppendOid("1.2." + std::string(1'000'000, '9')));
}

TEST_F(Limits, Xml_200000LevelsLoadAndComeOut) {
    const std::string xml = Repeated("<a>", 199'999) + "<a/>" + Repeated("</a>", 199'999);
    CkXml tree;
    ASSERT_TRUE(tree.LoadXml2(xml, true));
    EXPECT_EQ(tree.getXml(), xml);
    CkXml other;
    other.AddChildTree(tree);
}

TEST_F(Limits, Xml_AnIndexFarBehindTheLastElement_CreatesNothing) {
    CkXml tree;
    tree.UpdateChildContent("a[4000000000]", "x");
    tree.UpdateChildContent("a[99999999999999999999]", "x");
    EXPECT_EQ(tree.FindChild("a"), nullptr);
}

TEST_F(Limits, Cert_LargerThanACertificateIs_IsRefusedInWords) {
    const std::string der(1'000'001, '\x30');
    CkCert certificate;
    EXPECT_FALSE(certificate.LoadFromBinary2(der.data(), der.size()));
    EXPECT_EQ(certificate.lastErrorText(), "the certificate is larger than 1000000 bytes");
}

} // namespace
