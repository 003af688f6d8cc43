// The XML form: what it looks like, and that it brings every byte back.

#include "ck/CkAsn.h"
#include "ck/CkXml.h"

#include "OddCertificates.h"
#include "support/Bytes.h"
#include "support/Certificates.h"

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

std::string XmlOf(const std::string& der) {
    CkAsn asn;
    EXPECT_TRUE(asn.LoadEncoded(ToBase64(der), "Base64")) << ToHex(der);
    return asn.asnToXml();
}

std::string DerOf(const std::string& xml) {
    CkAsn asn;
    EXPECT_TRUE(asn.LoadAsnXml(xml)) << xml;
    return asn.getEncodedDer("Hex");
}

/// DER -> XML -> the tree of an XML element, trimmed -> XML -> DER, the way of a certificate into a
/// signature.
std::string RoundTrip(const std::string& der) {
    CkXml tree;
    EXPECT_TRUE(tree.LoadXml2(XmlOf(der), true));
    CkXml holder;
    holder.put_Tag("sequence");
    holder.AddChildTree(tree);
    CkAsn asn;
    EXPECT_TRUE(asn.LoadAsnXml(holder.getXml()));
    const std::unique_ptr<CkAsn> item = asn.GetSubItem(0);
    return item ? FromBase64(item->getEncodedDer("Base64")) : "";
}

TEST(CkAsnXml, TheVocabularyOfTheSignedDataBuilders) {
    EXPECT_EQ(XmlOf(FromHex("30 00")), "<sequence/>");
    EXPECT_EQ(XmlOf(FromHex("31 02 05 00")), "<set><null/></set>");
    EXPECT_EQ(XmlOf(FromHex("02 01 01")), "<int>01</int>");
    EXPECT_EQ(XmlOf(FromHex("06 09 2A864886F70D010702")), "<oid>1.2.840.113549.1.7.2</oid>");
    EXPECT_EQ(XmlOf(FromHex("04 03 616263")), "<octets>YWJj</octets>");
    EXPECT_EQ(XmlOf(FromHex("A0 02 05 00")),
              "<contextSpecific tag=\"0\" constructed=\"1\"><null/></contextSpecific>");
    EXPECT_EQ(XmlOf(FromHex("82 01 41")), "<contextSpecific tag=\"2\">QQ==</contextSpecific>");
}

TEST(CkAsnXml, TheOtherTypesHaveElementsOfTheirOwn) {
    EXPECT_EQ(XmlOf(FromHex("01 01 FF")), "<bool>FF</bool>");
    EXPECT_EQ(XmlOf(FromHex("03 02 03 A8")), "<bits unused=\"3\">qA==</bits>");
    EXPECT_EQ(XmlOf(FromHex("0A 01 05")), "<enum>05</enum>");
    EXPECT_EQ(XmlOf(FromHex("09 00")), "<real/>");
    EXPECT_EQ(XmlOf(DerValue(12, "é")), "<utf8>é</utf8>");
    EXPECT_EQ(XmlOf(DerValue(18, "12 3")), "<numeric>12 3</numeric>");
    EXPECT_EQ(XmlOf(DerValue(19, "IN")), "<printable>IN</printable>");
    EXPECT_EQ(XmlOf(DerValue(20, "a")), "<t61>YQ==</t61>");
    EXPECT_EQ(XmlOf(DerValue(22, "a@b")), "<ia5>a@b</ia5>");
    EXPECT_EQ(XmlOf(DerValue(23, "221115000000Z")), "<utctime>221115000000Z</utctime>");
    EXPECT_EQ(XmlOf(DerValue(24, "20521231235959Z")), "<gentime>20521231235959Z</gentime>");
    EXPECT_EQ(XmlOf(DerValue(26, "a")), "<visible>a</visible>");
    EXPECT_EQ(XmlOf(DerValue(28, "\0\0\0a"s)), "<ucs4>AAAAYQ==</ucs4>");
    EXPECT_EQ(XmlOf(DerValue(30, "\0a"s)), "<bmp>AGE=</bmp>");
    EXPECT_EQ(XmlOf(FromHex("5F 1F 00")), "<application tag=\"31\"/>");
    EXPECT_EQ(XmlOf(FromHex("E1 02 05 00")), "<private tag=\"1\" constructed=\"1\"><null/></private>");
    EXPECT_EQ(XmlOf(FromHex("28 00")), "<universal tag=\"8\" constructed=\"1\"/>");
    EXPECT_EQ(XmlOf(FromHex("19 01 41")), "<universal tag=\"25\">QQ==</universal>");
}

TEST(CkAsnXml, ContentThatXmlWouldNotBringBack_IsWrittenInBase64) {
    EXPECT_EQ(XmlOf(DerValue(12, " ")), "<utf8 encoding=\"base64\">IA==</utf8>");
    EXPECT_EQ(XmlOf(DerValue(19, "a\x01")), "<printable encoding=\"base64\">YQE=</printable>");
    EXPECT_EQ(XmlOf(FromHex("06 01 80")), "<oid encoding=\"base64\">gA==</oid>");
    EXPECT_EQ(XmlOf(FromHex("05 01 00")), "<null encoding=\"base64\">AA==</null>");
}

TEST(CkAsnXml, EveryTrustedCertificateOfTheSystem_ComesBackByteForByte) {
    const std::vector<std::string> certificates = SystemCertificates();
    ASSERT_GT(certificates.size(), 50U) << "package ca-certificates is missing";
    for (const std::string& der : certificates)
        ASSERT_EQ(RoundTrip(der), der) << ToHex(der);
}

TEST(CkAsnXml, EveryOddCertificate_ComesBackByteForByte) {
    for (const std::string& der : OddCertificates())
        ASSERT_TRUE(RoundTrip(der) == der) << ToHex(der).substr(0, 4000);
}

TEST(CkAsnXml, TheSerialNumberOfACertificate_IsTheFirstIntOfItsFirstSequence) {
    const auto serialOf = [](const CertificateOrder& order) {
        CkXml tree;
        EXPECT_TRUE(tree.LoadXml2(XmlOf(order.der()), true));
        return tree.getChildContent("sequence|int");
    };
    EXPECT_EQ(serialOf({.serial = "\x01"}), "01");
    EXPECT_EQ(serialOf({.serial = "\xFF\x01"}), "00FF01");
    EXPECT_EQ(serialOf({.serial = "\x80", .negativeSerial = true}), "80");
}

TEST(CkAsnXml, EveryStringTypeWithEveryKindOfText_ComesBack) {
    const std::vector<std::pair<const char*, std::vector<std::string>>> kinds = {
        {"blanks", {"", " ", "  ", " a", "a ", "a  b", std::string(100, ' ')}},
        {"tabs and ends of lines", {"\t", "\n", "\r\n", "\ta", "a\n"}},
        {"control characters", {"a\0b"s, "\0"s, "\x01\x1F", "\x7F"}},
        {"UTF-8", {"é", "\xC2\x80", "\xC2\xA0", "आशा", "\xEF\xBB\xBF", "\xEF\xBF\xBE", "\xF0\x9F\x98\x80"}},
        {"no UTF-8", {"\xFF", "\xC3", "\xED\xA0\x80", "caf\xE9"}},
        {"markup", {"<&>\"'", "]]>", "<!-- -->", "&#65;", "&amp;", "<?x?>", "<![CDATA[x]]>", "%s"}},
    };
    for (const auto& [kind, texts] : kinds)
        for (const std::string& text : texts)
            for (int tag = 1; tag < 31; ++tag)
                if (tag != 16 && tag != 17) {
                    ASSERT_EQ(RoundTrip(DerValue(tag, text)), DerValue(tag, text))
                        << kind << " in " << tag << ": " << ToHex(text);
                }
}

TEST(CkAsnXml, EveryTag_ComesBackPrimitiveAndConstructed) {
    for (int first = 0; first < 256; ++first) {
        const bool endOfContents = first == 0x00 || first == 0x20;
        if ((first & 0x1F) == 0x1F || endOfContents)
            continue;
        const bool constructed = first & 0x20;
        const std::string der = std::string(1, static_cast<char>(first)) +
                                (constructed ? FromHex("05 0201FF 0500") : FromHex("02 FF00"));
        ASSERT_EQ(RoundTrip(der), der) << ToHex(der);
    }
}

TEST(CkAsnXml, OddValues_ComeBackByteForByte) {
    const std::vector<std::pair<const char*, std::vector<std::string>>> cases = {
        {"high tags",
         {"5F 1F 01 AA", "9F 1F 00", "BF 8F 7F 02 05 00", "DF 87 FF FF FF 7F 00", "1F 1F 00", "3F 7F 00",
          "7F 21 03 5F 20 00", "FF 81 00 00"}},
        {"nested context tags",
         {"A0 00", "A0 02 A0 00", "A3 06 A1 04 82 00 80 00", "A0 03 80 01 FF", "A0 04 A1 02 A2 00"}},
        {"integers",
         {"02 00", "02 01 00", "02 01 80", "02 01 FF", "02 02 00 FF", "02 02 FF 01", "02 02 00 01",
          "02 02 FF FF", "0A 02 00 00", "01 01 01", ToHex(DerValue(2, std::string(200, '\xFE')))}},
        {"bit strings, with their unused bits",
         {"03 00", "03 01 00", "03 02 07 80", "03 02 03 FF", "03 01 09", "03 02 FF 01", "03 03 00 00 00"}},
        {"object identifiers, whatever their octets",
         {"06 00", "06 01 80", "06 01 00", "06 03 2A 86 48", "06 02 80 01", "06 03 55 04 03",
          "06 03 2A 80 01", "06 01 FF", "06 0A FF FF FF FF FF FF FF FF FF 7F", "0D 02 81 00",
          ToHex(DerValue(6, std::string(300, '\x01')))}},
    };
    for (const auto& [rule, values] : cases)
        for (const std::string& hex : values)
            EXPECT_EQ(RoundTrip(FromHex(hex)), FromHex(hex)) << rule << ": " << hex;
}

TEST(CkAsnXml, WhatOpenSslEncodes_ComesBack) {
    const std::vector<std::pair<const char*, std::vector<std::string>>> kinds = {
        {"values",
         {"BOOL:TRUE", "NULL", "INT:-129", "INT:0x00FFFFFFFFFFFFFFFFFFFFFFFF", "ENUM:3", "OID:2.999.1"}},
        {"times", {"UTC:221115000000Z", "GENTIME:20521231235959Z", "GENTIME:20221115000000.123Z"}},
        {"bytes and bits", {"FORMAT:HEX,OCT:00FF", "FORMAT:BITLIST,BITSTR:1,5"}},
        {"strings",
         {"FORMAT:UTF8,UNIV:\xC3\xA9", "IA5:a@b", "FORMAT:UTF8,UTF8:\xE0\xA4\x86",
          "FORMAT:UTF8,BMP:\xE0\xA4\x86", "PRINTABLE:x y", "NUMERIC:1 2", "VISIBLE:v", "T61:t"}},
        {"values in values",
         {"EXP:0,EXP:5A,EXP:3P,IMP:7,IA5:x", "EXP:1000U,OCTWRAP,INT:1", "SEQWRAP,SETWRAP,BITWRAP,BOOL:FALSE",
          "IMP:99999999C,UTF8:x"}},
    };
    for (const auto& [kind, descriptions] : kinds)
        for (const std::string& description : descriptions)
            EXPECT_EQ(RoundTrip(GeneratedDer(description)), GeneratedDer(description))
                << kind << ": " << description;
}

TEST(CkAsnXml, WhatIsReadFromXml_IsWhatOpenSslEncodes) {
    const std::vector<std::pair<const char*, const char*>> pairs = {
        {"<int>01</int>", "INT:1"},
        {"<int>FF7F</int>", "INT:-129"},
        {"<oid>1.2.840.113549.1.7.1</oid>", "OID:1.2.840.113549.1.7.1"},
        {"<null></null>", "NULL"},
        {"<octets>AP8=</octets>", "FORMAT:HEX,OCT:00FF"},
        {"<bits unused=\"2\">RA==</bits>", "FORMAT:BITLIST,BITSTR:1,5"},
        {"<contextSpecific tag=\"0\" constructed=\"1\"><int>01</int></contextSpecific>", "EXP:0,INT:1"},
        {"<contextSpecific tag=\"90\">eA==</contextSpecific>", "IMP:90,IA5:x"},
        {"<application tag=\"1000\" constructed=\"1\"><utf8>x</utf8></application>", "EXP:1000A,UTF8:x"},
        {"<set><sequence><bool>FF</bool></sequence></set>", "SETWRAP,SEQWRAP,BOOL:TRUE"}};
    for (const auto& [xml, description] : pairs)
        EXPECT_EQ(DerOf(xml), ToHex(GeneratedDer(description))) << xml;
}

TEST(CkAsnXml, ContentThatDoesNotFit_IsEncodedAsFarAsItCanBeRead) {
    EXPECT_EQ(DerOf("<int/>"), "0200");
    EXPECT_EQ(DerOf("<int>0G</int>"), "0200");
    EXPECT_EQ(DerOf("<int>01 02\nXX03</int>"), "02020102");
    EXPECT_EQ(DerOf("<octets>YWJj!</octets>"), "0403616263");
    EXPECT_EQ(DerOf("<octets>Y W\nJ j</octets>"), "0403616263");
    EXPECT_EQ(DerOf("<oid>none</oid>"), "0600");
    EXPECT_EQ(DerOf("<null>text</null>"), "0500");
    EXPECT_EQ(DerOf("<bits unused=\"many\">/w==</bits>"), "030200FF");
    EXPECT_EQ(DerOf("<bits unused=\"256\">/w==</bits>"), "030200FF");
    EXPECT_EQ(DerOf("<contextSpecific>QQ==</contextSpecific>"), "800141");
    EXPECT_EQ(DerOf("<contextSpecific tag=\"4294967296\">QQ==</contextSpecific>"), "800141");
    EXPECT_EQ(DerOf("<contextSpecific tag=\"-1\" constructed=\"0\"/>"), "8000");
    EXPECT_EQ(DerOf("<contextSpecific tag=\"1\" constructed=\"1\">text</contextSpecific>"), "A100");
}

TEST(CkAsnXml, AnUnknownElementInside_IsLeftOut) {
    EXPECT_EQ(DerOf("<sequence><unnamed><int>01</int></unnamed>text<!-- c --><int>02</int></sequence>"),
              "3003020102");
}

TEST(CkAsnXml, AnUnknownRootOrBrokenXml_IsRefused) {
    for (const char* xml :
         {"", "<unnamed/>", "<Sequence/>", "<sequence>", "<sequence/><sequence/>", "text"}) {
        CkAsn asn;
        asn.LoadAsnXml("<int>05</int>");
        EXPECT_FALSE(asn.LoadAsnXml(xml)) << xml;
        EXPECT_EQ(asn.getEncodedDer("Hex"), "3000") << xml;
    }
}

TEST(CkAsnXml, WhiteSpaceBetweenElements_DoesNotMatter) {
    EXPECT_EQ(DerOf("<?xml version=\"1.0\"?>\n<sequence>\n  <int> 01 </int>\n  <null/>\n</sequence>\n"),
              "30050201010500");
}

} // namespace
