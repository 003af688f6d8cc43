#include "QMX509Decoder.h"

#include "HostFixture.h"
#include "ck/CkJsonObject.h"
#include "support/Certificates.h"

#include <memory>

namespace {

using DecoderTest = HostFixture;
using testing::HasSubstr;
using testing::Not;

std::string CardOfDer(const std::string& der) {
    return QMX509Decoder().GetX509CertHTML(der.data(), der.size());
}

std::string CardOf(const CertificateOrder& certificate) { return CardOfDer(certificate.der()); }

void ExpectMembers(const CkJsonObject& record, std::initializer_list<const char*> members) {
    int position = 0;
    for (const char* member : members)
        EXPECT_EQ(record.IndexOf(member), position++) << member;
}

std::unique_ptr<CkJsonObject> RecordOf(const std::string& der) {
    return std::unique_ptr<CkJsonObject>(QMX509Decoder().GetX509CertDetails(der.data(), der.size()));
}

TEST_F(DecoderTest, OnlyAKeyUsageThatSignsGivesACard) {
    for (const char* usage : {"digitalSignature", "nonRepudiation", "keyCertSign,digitalSignature"})
        EXPECT_EQ(CardOf({.extensions = {Configured("keyUsage", usage)}}).substr(0, 5), "<div ") << usage;
    EXPECT_EQ(CardOf({.extensions = {Configured("keyUsage", "critical,keyCertSign,cRLSign")}}), "ChainCert");
    EXPECT_EQ(CardOf(CertificateOrder{}), "ChainCert") << "without key usage";
}

TEST_F(DecoderTest, TheKeyUsageIsLoggedInDecimal) {
    AppLogLevel = DEBUG;
    CardOf({.extensions = {Configured("keyUsage", "digitalSignature,nonRepudiation")}});
    EXPECT_TRUE(HasLogged("GetX509CertHTML - Load Certificate Success"));
    EXPECT_TRUE(HasLogged("Key Usages: 192")) << Log();
}

TEST_F(DecoderTest, ACardIsNameEmailOrganisationAndValidityInThisOrder) {
    const std::string der = CertificateOrder{.extensions = ForSigning("asha@example.in")}.der();
    const std::string expDate = RecordOf(der)->stringOf("ExpDate");
    EXPECT_EQ(CardOfDer(der),
              "<div style='font-family:verdana;'><span style='color:blue;'><b>Asha Rao</b>&nbsp;("
              "asha@example.in)</span><br>Example <br><span style='font-size:80%;'><b>Valid upto: " +
                  expDate + "</b></span></div><hr>");
}

TEST_F(DecoderTest, WithoutAnEmailTheParenthesesAreEmpty) {
    EXPECT_THAT(CardOf({.extensions = ForSigning()}), HasSubstr("<b>Asha Rao</b>&nbsp;()</span>"));
}

TEST_F(DecoderTest, ACertificateThatEndedYesterdayIsShownAsExpired) {
    const std::string card = CardOf({.notAfter = FromNow(-86400), .extensions = ForSigning()});
    EXPECT_THAT(card, HasSubstr("<span style='font-size:80%;color:red'><b>Expired: "));
    EXPECT_THAT(card, Not(HasSubstr("Valid upto")));
}

TEST_F(DecoderTest, ACertificateThatEndsTomorrowIsShownAsValid) {
    const std::string card = CardOf({.notAfter = FromNow(86400), .extensions = ForSigning()});
    EXPECT_THAT(card, HasSubstr("<span style='font-size:80%;'><b>Valid upto: "));
    EXPECT_THAT(card, Not(HasSubstr("Expired")));
}

TEST_F(DecoderTest, AKeyThatCannotBeReadLeavesTheRecordWithTheErrorInItsPlace) {
    AppLogLevel = DEBUG;
    const std::unique_ptr<CkJsonObject> record = RecordOf(CertificateOrder{.key = KeyKind::BrokenRsa}.der());
    ExpectMembers(*record, {"SelCertSubject", "CertThumbPrint", "eMail", "ValidFrom", "ExpDate", "ErrMsg"});
    EXPECT_EQ(record->IndexOf("PublicKey"), -1);
    EXPECT_EQ(record->IndexOf("Cert"), -1);
    EXPECT_THAT(Log(), HasSubstr(record->stringOf("ErrMsg") + "\n"));
}

TEST_F(DecoderTest, TheRecordHasItsMembersInOrder) {
    const std::unique_ptr<CkJsonObject> record =
        RecordOf(CertificateOrder{.extensions = ForSigning("asha@example.in")}.der());
    ExpectMembers(*record,
                  {"SelCertSubject", "CertThumbPrint", "eMail", "ValidFrom", "ExpDate", "PublicKey", "Cert"});
    EXPECT_EQ(record->IndexOf("ErrMsg"), -1);
    EXPECT_EQ(record->stringOf("SelCertSubject"), "C=IN, O=Example, CN=Asha Rao");
    EXPECT_EQ(record->stringOf("eMail"), "asha@example.in");
}

TEST_F(DecoderTest, ValidFromIsATimestampAndExpDateTheRfc822Text) {
    const std::unique_ptr<CkJsonObject> record = RecordOf(CertificateOrder{}.der());
    EXPECT_TRUE(record->stringOf("ValidFrom").ends_with("Z")) << record->stringOf("ValidFrom");
    EXPECT_TRUE(record->stringOf("ExpDate").ends_with(" GMT")) << record->stringOf("ExpDate");
}

TEST_F(DecoderTest, AValidityThatCannotBeReadIsShownAsExpiredWithoutADate) {
    const char* const noTime = "301399000000Z";
    const std::string der =
        CertificateOrder{.notBefore = noTime, .notAfter = noTime, .extensions = ForSigning()}.der();
    const std::unique_ptr<CkJsonObject> record = RecordOf(der);
    EXPECT_EQ(record->IndexOf("ErrMsg"), -1);
    EXPECT_EQ(record->stringOf("ValidFrom"), "");
    EXPECT_EQ(record->stringOf("ExpDate"), "");
    EXPECT_THAT(CardOfDer(der), HasSubstr("color:red'><b>Expired: </b></span></div><hr>"));
}

TEST_F(DecoderTest, BytesThatAreNoCertificateGiveARecordAndARowWithTheErrorAlone) {
    const std::unique_ptr<CkJsonObject> record = RecordOf("no certificate");
    const std::string error = record->stringOf("ErrMsg");
    EXPECT_NE(error, "");
    EXPECT_EQ(record->emit(), R"({"ErrMsg":")" + error + R"("})");
    EXPECT_EQ(CardOfDer("no certificate"), "QMHostError: " + error);
}

} // namespace
