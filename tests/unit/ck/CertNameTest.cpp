// The texts of names: which names the attributes have, what is escaped, and how the string types become
// UTF-8.

#include "ck/CkCert.h"

#include "support/Bytes.h"
#include "support/Certificates.h"

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

CkCert With(std::vector<Attribute> subject) {
    const std::string der = CertificateOrder{.subject = std::move(subject)}.der();
    CkCert certificate;
    EXPECT_TRUE(certificate.LoadFromBinary2(der.data(), der.size())) << certificate.lastErrorText();
    return certificate;
}

std::string DnOf(std::vector<Attribute> subject) { return With(std::move(subject)).subjectDN(); }
std::string CnOf(std::string value, int type) { return With({{"CN", std::move(value), type}}).subjectCN(); }

TEST(CkCertName, AttributesHaveTheirShortNames) {
    EXPECT_EQ(DnOf({{"countryName", "1"},
                    {"stateOrProvinceName", "2"},
                    {"localityName", "3"},
                    {"organizationName", "4"},
                    {"organizationalUnitName", "5"},
                    {"commonName", "6"},
                    {"surname", "7"},
                    {"givenName", "8"},
                    {"title", "9"},
                    {"2.5.4.9", "10"},
                    {"2.5.4.17", "11"},
                    {"2.5.4.5", "12"},
                    {"1.2.840.113549.1.9.1", "13"},
                    {"0.9.2342.19200300.100.1.25", "14"}}),
              "C=1, ST=2, L=3, O=4, OU=5, CN=6, SN=7, GN=8, title=9, street=10, postalCode=11, "
              "serialNumber=12, E=13, "
              "DC=14");
}

TEST(CkCertName, OtherAttributesHaveTheirDottedOid) {
    EXPECT_EQ(DnOf({{"2.5.4.65", "asha"}, {"0.9.2342.19200300.100.1.1", "u"}, {"1.3.6.1.4.1.99999.1", "x"}}),
              "2.5.4.65=asha, 0.9.2342.19200300.100.1.1=u, 1.3.6.1.4.1.99999.1=x");
}

TEST(CkCertName, TheOidOfAnAttribute_MayBeLong) {
    const std::string oid = "2.25.329800735698586629295641978511506172918." + std::string(90, '7');
    EXPECT_EQ(DnOf({{oid, "x"}}), oid + "=x");
}

TEST(CkCertName, ThePartsOfAMultiValuedRdn_AreJoinedByPlus) {
    const std::string dn =
        DnOf({{"C", "IN"}, {"CN", "a"}, {"serialNumber", "7", V_ASN1_PRINTABLESTRING, true}});
    // DER sorts the parts of a SET by their encoding, not as they were given.
    EXPECT_TRUE(dn == "C=IN, CN=a+serialNumber=7" || dn == "C=IN, serialNumber=7+CN=a") << dn;
}

TEST(CkCertName, SpecialCharacters_AreEscaped) {
    EXPECT_EQ(DnOf({{"O", "Example, \"A\" + B; <C>\\D = #1"}}), R"(O=Example\, \"A\" \+ B\; \<C\>\\D = #1)");
}

TEST(CkCertName, BlanksAndHashAtTheEnds_AreEscaped) {
    EXPECT_EQ(DnOf({{"CN", " a b "}}), R"(CN=\ a b\ )");
    EXPECT_EQ(DnOf({{"CN", "#a#"}}), R"(CN=\#a#)");
    EXPECT_EQ(DnOf({{"CN", "  "}}), R"(CN=\ \ )");
    EXPECT_EQ(DnOf({{"CN", " "}}), R"(CN=\ )");
    EXPECT_EQ(DnOf({{"CN", ""}}), "CN=");
}

TEST(CkCertName, AZeroByte_IsEscapedInTheDnAndEndsTheSingleTexts) {
    const CkCert certificate = With({{"CN", "good\0evil"s}, {"O", "o\0"s}});
    EXPECT_EQ(certificate.subjectDN(), R"(CN=good\00evil, O=o\00)");
    EXPECT_EQ(certificate.subjectCN(), "good");
    EXPECT_EQ(certificate.subjectO(), "o");
}

TEST(CkCertName, EveryStringType_BecomesUtf8) {
    EXPECT_EQ(CnOf("आशा", V_ASN1_UTF8STRING), "आशा");
    EXPECT_EQ(CnOf(FromHex("0906 0936 093E"), V_ASN1_BMPSTRING), "आशा");
    EXPECT_EQ(CnOf(FromHex("0000 0906 0001 F600"), V_ASN1_UNIVERSALSTRING), "आ\xF0\x9F\x98\x80");
    EXPECT_EQ(CnOf("caf\xE9", V_ASN1_T61STRING), "café") << "read as Latin-1";
    EXPECT_EQ(CnOf("Asha", V_ASN1_PRINTABLESTRING), "Asha");
    EXPECT_EQ(CnOf("Asha", V_ASN1_IA5STRING), "Asha");
    EXPECT_EQ(CnOf("12", V_ASN1_NUMERICSTRING), "12");
    EXPECT_EQ(With({{"CN", "Asha", V_ASN1_VISIBLESTRING, false, true}}).subjectCN(), "Asha")
        << "which libcrypto refuses in a name";
}

TEST(CkCertName, BytesThatAreNoUtf8_AreReplaced) {
    const auto cnOf = [](const std::string& bytes) {
        return With({{"CN", bytes, V_ASN1_UTF8STRING, false, true}}).subjectCN();
    };
    EXPECT_EQ(cnOf("caf\xE9"), "caf\xEF\xBF\xBD");
    EXPECT_EQ(cnOf("a\xFFz"), "a\xEF\xBF\xBDz");
    EXPECT_EQ(cnOf("\xED\xA0\x80"), "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD") << "surrogates are no characters";
    EXPECT_EQ(DnOf({{"CN", "\xC3", V_ASN1_UTF8STRING, false, true}, {"O", "x"}}), "CN=\xEF\xBF\xBD, O=x");
}

TEST(CkCertName, AStringThatIsNotWhatItsTypeSays_IsStillReadAndValidUtf8) {
    for (const std::string& bytes :
         {"\xD8\x00\xDC\x00"s, "\x01"s, "abc"s, "\xFF\xFF\xFF\xFF"s, "\x00\x11\x00\x00"s})
        for (const int type : {V_ASN1_BMPSTRING, V_ASN1_UNIVERSALSTRING, V_ASN1_PRINTABLESTRING,
                               V_ASN1_IA5STRING, V_ASN1_T61STRING, V_ASN1_UTF8STRING, V_ASN1_NUMERICSTRING}) {
            const CkCert certificate = With({{"CN", bytes, type, false, true}, {"O", "x"}});
            EXPECT_TRUE(IsUtf8(certificate.subjectDN())) << ToHex(certificate.subjectDN());
            EXPECT_TRUE(IsUtf8(certificate.subjectCN())) << ToHex(certificate.subjectCN());
            EXPECT_EQ(certificate.subjectO(), "x");
        }
}

TEST(CkCertName, ACertificateWithAStringThatIsNotWhatItsTypeSays_IsOtherwiseUnchanged) {
    const std::string der =
        CertificateOrder{.subject = {{"CN", "caf\xE9", V_ASN1_UTF8STRING, false, true}}, .key = KeyKind::Rsa}
            .der();
    CkCert certificate;
    ASSERT_TRUE(certificate.LoadFromBinary2(der.data(), der.size())) << certificate.lastErrorText();
    EXPECT_EQ(certificate.getEncoded(), ToBase64(der));
    EXPECT_EQ(certificate.validFromStr(), "Tue, 15 Nov 2022 00:00:00 GMT");
    EXPECT_NE(certificate.ExportPublicKey(), nullptr);
}

TEST(CkCertName, AValueThatIsNoText_IsTheHexOfItsEncoding) {
    EXPECT_EQ(DnOf({{"2.5.4.45", FromHex("A0"), V_ASN1_BIT_STRING}}), "2.5.4.45=#030205A0");
    EXPECT_EQ(DnOf({{"CN", FromHex("3003020105"), V_ASN1_SEQUENCE}}), "CN=#3003020105");
    EXPECT_EQ(With({{"CN", FromHex("3003020105"), V_ASN1_SEQUENCE}}).subjectCN(), "");
}

} // namespace
