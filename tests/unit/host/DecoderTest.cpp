#include "QMX509Decoder.h"

#include "ScratchFolder.h"
#include "TestCertificate.h"
#include "ck/CkJsonObject.h"

#include <memory>

namespace {

using DecoderTest = ScratchFolder;

std::string CardOfDer(const std::string& der) {
    return QMX509Decoder().GetX509CertHTML(der.data(), der.size());
}

std::string CardOf(const TestCertificate& certificate) { return CardOfDer(certificate.der()); }

std::unique_ptr<CkJsonObject> RecordOf(const std::string& der) {
    return std::unique_ptr<CkJsonObject>(QMX509Decoder().GetX509CertDetails(der.data(), der.size()));
}

TEST_F(DecoderTest, AKeyThatSignsOnlyCertificatesIsAChainCert) {
    EXPECT_EQ(CardOf({.keyUsage = "critical,keyCertSign,cRLSign"}), "ChainCert");
}

TEST_F(DecoderTest, ACertificateWithoutKeyUsageIsAChainCert) {
    EXPECT_EQ(CardOf({.keyUsage = std::nullopt}), "ChainCert");
}

TEST_F(DecoderTest, OneSigningUseIsEnoughForACard) {
    for (const char* usage : {"digitalSignature", "nonRepudiation", "keyCertSign,digitalSignature"})
        EXPECT_EQ(CardOf({.keyUsage = usage}).substr(0, 5), "<div ") << usage;
}

TEST_F(DecoderTest, TheKeyUsageIsLoggedInDecimal) {
    AppLogLevel = DEBUG;
    CardOf({.keyUsage = "digitalSignature,nonRepudiation"});
    EXPECT_NE(Log().find(" GetX509CertHTML - Load Certificate Success\n"), std::string::npos);
    EXPECT_NE(Log().find(" Key Usages: 192\n"), std::string::npos) << Log();
}

TEST_F(DecoderTest, ACardIsNameEmailOrganisationAndValidityInThisOrder) {
    const std::string der = TestCertificate{.email = "asha@example.in"}.der();
    const std::string expDate = RecordOf(der)->stringOf("ExpDate");
    EXPECT_EQ(CardOfDer(der),
              "<div style='font-family:verdana;'><span style='color:blue;'><b>Asha Rao</b>&nbsp;("
              "asha@example.in)</span><br>Example <br><span style='font-size:80%;'><b>Valid upto: " +
                  expDate + "</b></span></div><hr>");
}

TEST_F(DecoderTest, WithoutAnEmailTheParenthesesAreEmpty) {
    EXPECT_NE(CardOf({}).find("<b>Asha Rao</b>&nbsp;()</span>"), std::string::npos);
}

TEST_F(DecoderTest, ACertificateThatEndedYesterdayIsShownAsExpired) {
    const std::string card = CardOf({.notBefore = -2 * 86400, .notAfter = -86400});
    EXPECT_NE(card.find("<span style='font-size:80%;color:red'><b>Expired: "), std::string::npos) << card;
    EXPECT_EQ(card.find("Valid upto"), std::string::npos);
}

TEST_F(DecoderTest, ACertificateThatEndsTomorrowIsShownAsValid) {
    const std::string card = CardOf({.notAfter = 86400});
    EXPECT_NE(card.find("<span style='font-size:80%;'><b>Valid upto: "), std::string::npos) << card;
    EXPECT_EQ(card.find("Expired"), std::string::npos);
}

TEST_F(DecoderTest, AKeyThatCannotBeReadLeavesTheRecordWithTheErrorInItsPlace) {
    AppLogLevel = DEBUG;
    std::string der = TestCertificate{}.der();
    const std::string_view keyInBitString("\x03\x82\x01\x0f\0\x30", 6);
    der[der.find(keyInBitString) + 5] = '\x31'; // no SEQUENCE any more
    const std::unique_ptr<CkJsonObject> record = RecordOf(der);
    int position = 0;
    for (const char* member : {"SelCertSubject", "CertThumbPrint", "eMail", "ValidFrom", "ExpDate", "ErrMsg"})
        EXPECT_EQ(record->IndexOf(member), position++) << member;
    EXPECT_EQ(record->IndexOf("PublicKey"), -1);
    EXPECT_EQ(record->IndexOf("Cert"), -1);
    EXPECT_NE(Log().find(record->stringOf("ErrMsg") + "\n"), std::string::npos) << Log();
}

TEST_F(DecoderTest, TheRecordHasItsMembersInOrder) {
    const std::unique_ptr<CkJsonObject> record = RecordOf(TestCertificate{.email = "asha@example.in"}.der());
    int position = 0;
    for (const char* member :
         {"SelCertSubject", "CertThumbPrint", "eMail", "ValidFrom", "ExpDate", "PublicKey", "Cert"})
        EXPECT_EQ(record->IndexOf(member), position++) << member;
    EXPECT_EQ(record->IndexOf("ErrMsg"), -1);
    EXPECT_EQ(record->stringOf("SelCertSubject"), "C=IN, O=Example, CN=Asha Rao");
    EXPECT_EQ(record->stringOf("eMail"), "asha@example.in");
}

TEST_F(DecoderTest, ValidFromIsATimestampAndExpDateTheRfc822Text) {
    const std::unique_ptr<CkJsonObject> record = RecordOf(TestCertificate{}.der());
    EXPECT_TRUE(record->stringOf("ValidFrom").ends_with("Z")) << record->stringOf("ValidFrom");
    EXPECT_TRUE(record->stringOf("ExpDate").ends_with(" GMT")) << record->stringOf("ExpDate");
}

TEST_F(DecoderTest, AValidityThatCannotBeReadIsShownAsExpiredWithoutADate) {
    std::string der = TestCertificate{}.der();
    // UTCTime, 13 bytes: begin and end.
    for (std::size_t time = der.find("\x17\x0d"); time != std::string::npos;
         time = der.find("\x17\x0d", time + 2))
        der.replace(time + 2, 13, "301399000000Z");
    const std::unique_ptr<CkJsonObject> record = RecordOf(der);
    EXPECT_EQ(record->IndexOf("ErrMsg"), -1);
    EXPECT_EQ(record->stringOf("ValidFrom"), "");
    EXPECT_EQ(record->stringOf("ExpDate"), "");
    EXPECT_NE(CardOfDer(der).find("color:red'><b>Expired: </b></span></div><hr>"), std::string::npos)
        << CardOfDer(der);
}

TEST_F(DecoderTest, BytesThatAreNoCertificateGiveARecordWithTheErrorAlone) {
    const std::unique_ptr<CkJsonObject> record = RecordOf("no certificate");
    EXPECT_EQ(record->IndexOf("ErrMsg"), 0);
    EXPECT_NE(record->stringOf("ErrMsg"), "");
    EXPECT_EQ(record->emit(), R"({"ErrMsg":")" + record->stringOf("ErrMsg") + R"("})");
}

TEST_F(DecoderTest, BytesThatAreNoCertificateGiveARowWithTheError) {
    const std::string row = QMX509Decoder().GetX509CertHTML("no certificate", 14);
    EXPECT_EQ(row, "QMHostError: " + RecordOf("no certificate")->stringOf("ErrMsg"));
}

} // namespace
