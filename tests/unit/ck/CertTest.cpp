#include "ck/CkCert.h"
#include "ck/CkDateTime.h"

#include "OddCertificates.h"
#include "support/Bytes.h"
#include "support/Certificates.h"

#include <gtest/gtest.h>

namespace {

CkCert LoadedDer(const std::string& der) {
    CkCert certificate;
    EXPECT_TRUE(certificate.LoadFromBinary2(der.data(), der.size())) << certificate.lastErrorText();
    return certificate;
}

CkCert Loaded(const CertificateOrder& order) { return LoadedDer(order.der()); }

std::string PublicKeyBase64(CkCert certificate, bool preferPkcs1) {
    const std::unique_ptr<CkPublicKey> key = certificate.ExportPublicKey();
    EXPECT_EQ(certificate.get_LastMethodSuccess(), key != nullptr);
    return key ? key->getEncoded(preferPkcs1, "Base64") : "none";
}

TEST(CkCert, BeforeALoad_EveryTextIsEmptyAndEveryNumberZero) {
    const CkCert certificate;
    EXPECT_EQ(certificate.subjectDN() + certificate.subjectCN() + certificate.subjectO() +
                  certificate.rfc822Name() + certificate.sha1Thumbprint() + certificate.validFromStr() +
                  certificate.validToStr() + certificate.getEncoded() + certificate.lastErrorText(),
              "");
    EXPECT_EQ(certificate.get_IntendedKeyUsage(), 0U);
}

TEST(CkCert, ExportPublicKey_BeforeALoad_FailsInWords) {
    CkCert certificate;
    EXPECT_EQ(certificate.ExportPublicKey(), nullptr);
    EXPECT_FALSE(certificate.get_LastMethodSuccess());
    EXPECT_EQ(certificate.lastErrorText(), "no certificate is loaded");
}

TEST(CkCert, SubjectDn_GivesTheRdnsInTheCertificatesOrder) {
    EXPECT_EQ(Loaded(CertificateOrder{}).subjectDN(), "C=IN, O=Example, CN=Asha Rao");
    EXPECT_EQ(Loaded({.subject = {{"CN", "a"}, {"O", "b"}, {"C", "IN"}}}).subjectDN(), "CN=a, O=b, C=IN");
}

TEST(CkCert, SubjectCnAndSubjectO_GiveTheFirstOfSeveral) {
    const CkCert certificate =
        Loaded({.subject = {{"O", "one"}, {"CN", "first"}, {"O", "two"}, {"CN", "second"}}});
    EXPECT_EQ(certificate.subjectCN(), "first");
    EXPECT_EQ(certificate.subjectO(), "one");
}

TEST(CkCert, Sha1Thumbprint_Is40UpperCaseHexDigitsOfTheDer) {
    const std::string der = CertificateOrder{}.der();
    EXPECT_EQ(LoadedDer(der).sha1Thumbprint(), ToHex(DigestOf("SHA1", der)));
}

TEST(CkCert, Dates_AreRfc822WithATwoDigitDayOrEmptyWhenTheyCannotBeRead) {
    const struct {
        const char* rule;
        const char* time;
        const char* date;
    } cases[] = {
        {"midnight", "221115000000Z", "Tue, 15 Nov 2022 00:00:00 GMT"},
        {"one digit is written with a zero", "250301080907Z", "Sat, 01 Mar 2025 08:09:07 GMT"},
        {"before the first of two-digit years", "19000101000000Z", "Mon, 01 Jan 1900 00:00:00 GMT"},
        {"the last day of all", "99991231235959Z", "Fri, 31 Dec 9999 23:59:59 GMT"},
        {"the first of two-digit years", "500101000000Z", "Sun, 01 Jan 1950 00:00:00 GMT"},
        {"the last of two-digit years", "491231235959Z", "Fri, 31 Dec 2049 23:59:59 GMT"},
        {"a zone before midnight", "20300101003000+0100", "Mon, 31 Dec 2029 23:30:00 GMT"},
        {"a zone behind midnight", "20491231233000-0100", "Sat, 01 Jan 2050 00:30:00 GMT"},
        {"a 13th month", "20301301000000Z", ""},
        {"a zone beyond the last day of all", "99991231235959-0100", ""},
    };
    for (const auto& it : cases) {
        const CkCert certificate = Loaded({.notBefore = it.time, .notAfter = it.time});
        EXPECT_EQ(certificate.validFromStr(), it.date) << it.rule;
        EXPECT_EQ(certificate.validToStr(), it.date) << it.rule;
        EXPECT_EQ(CkDateTime().SetFromRfc822(it.date), *it.date != '\0') << it.rule;
    }
}

TEST(CkCert, KeyUsage_IsTheFirstOctetOfTheExtension) {
    const std::vector<std::pair<const char*, unsigned>> cases = {
        {"03 02 07 80", 0x80}, {"03 02 06 C0", 0xC0},    {"03 02 01 06", 0x06}, {"03 03 07 00 80", 0x00},
        {"03 02 00 FF", 0xFF}, {"03 03 07 88 80", 0x88}, {"03 01 00", 0x00}};
    for (const auto& [der, value] : cases)
        EXPECT_EQ(Loaded({.extensions = {{"2.5.29.15", FromHex(der)}}}).get_IntendedKeyUsage(), value) << der;
}

TEST(CkCert, KeyUsage_WithoutTheExtension_IsZero) {
    EXPECT_EQ(Loaded(CertificateOrder{}).get_IntendedKeyUsage(), 0U);
}

TEST(CkCert, Rfc822Name_IsTheFirstAlternativeOneElseTheSubjectsElseEmpty) {
    const std::vector<Attribute> inSubject = {{"emailAddress", "dn@example.in", V_ASN1_IA5STRING}};
    const Extension alternative = Configured("subjectAltName", "email:alt@example.in");
    const Extension dnsAndTwo = Configured("subjectAltName", "DNS:d.i,email:a@,email:b@");
    const Extension dnsOnly = Configured("subjectAltName", "DNS:d.i");
    EXPECT_EQ(Loaded({.subject = inSubject, .extensions = {alternative}}).rfc822Name(), "alt@example.in");
    EXPECT_EQ(Loaded({.extensions = {dnsAndTwo}}).rfc822Name(), "a@");
    EXPECT_EQ(Loaded({.subject = inSubject, .extensions = {dnsOnly}}).rfc822Name(), "dn@example.in");
    EXPECT_EQ(Loaded({.extensions = {dnsOnly}}).rfc822Name(), "");
    EXPECT_EQ(Loaded(CertificateOrder{}).rfc822Name(), "");
}

TEST(CkCert, GetEncoded_IsTheDerAsLoadedOnOneLine) {
    const std::string der = CertificateOrder{}.der();
    EXPECT_EQ(LoadedDer(der).getEncoded(), ToBase64(der));
}

TEST(CkCert, PublicKey_Rsa_IsPkcs1WhenPreferredElseTheSubjectPublicKeyInfo) {
    const CertificateOrder order{.key = KeyKind::Rsa};
    EXPECT_EQ(PublicKeyBase64(Loaded(order), true), ToBase64(Encoded(i2d_PublicKey, KeyOf(KeyKind::Rsa))));
    EXPECT_EQ(PublicKeyBase64(Loaded(order), false), ToBase64(Encoded(i2d_PUBKEY, KeyOf(KeyKind::Rsa))));
}

TEST(CkCert, PublicKey_OfOtherAlgorithms_IsTheSubjectPublicKeyInfo) {
    for (const KeyKind kind : {KeyKind::Ec, KeyKind::RsaPss}) {
        const std::string expected = ToBase64(Encoded(i2d_PUBKEY, KeyOf(kind)));
        EXPECT_EQ(PublicKeyBase64(Loaded({.key = kind}), true), expected);
        EXPECT_EQ(PublicKeyBase64(Loaded({.key = kind}), false), expected);
    }
}

TEST(CkCert, PublicKey_OutlivesItsCertificate) {
    std::unique_ptr<CkPublicKey> key;
    {
        CkCert certificate = Loaded(CertificateOrder{});
        key = certificate.ExportPublicKey();
    }
    EXPECT_EQ(key->getEncoded(true, "Base64"), ToBase64(Encoded(i2d_PUBKEY, KeyOf(KeyKind::Ec))));
}

TEST(CkCert, LoadFromBinary2_ReplacesTheCertificateAndEmptiesItWhenItFails) {
    CkCert certificate = Loaded({.subject = {{"CN", "one"}}});
    const std::string other = CertificateOrder{.subject = {{"CN", "two"}}}.der();
    ASSERT_TRUE(certificate.LoadFromBinary2(other.data(), other.size()));
    EXPECT_EQ(certificate.subjectCN(), "two");
    EXPECT_FALSE(certificate.LoadFromBinary2("x", 1));
    EXPECT_FALSE(certificate.get_LastMethodSuccess());
    EXPECT_EQ(certificate.subjectCN() + certificate.getEncoded(), "");
}

TEST(CkCert, ACertificateThatWasReadBefore_IsReadFromItsOwnBytesAgain) {
    const std::string der = CertificateOrder{.subject = {{"CN", "one"}}}.der();
    const CkCert first = LoadedDer(der);
    const CkCert second = LoadedDer(der);
    EXPECT_EQ(second.subjectCN() + second.sha1Thumbprint(), "one" + first.sha1Thumbprint());

    CkCert third;
    EXPECT_FALSE(third.LoadFromBinary2(der.data(), der.size() - 1));
    const std::string more = der + '\0';
    EXPECT_TRUE(third.LoadFromBinary2(more.data(), more.size()));
    EXPECT_EQ(third.sha1Thumbprint(), first.sha1Thumbprint());
    std::string other = der;
    other.back() = static_cast<char>(other.back() ^ 1); // in the signature
    ASSERT_TRUE(third.LoadFromBinary2(other.data(), other.size()));
    EXPECT_NE(third.sha1Thumbprint(), first.sha1Thumbprint());
    EXPECT_TRUE(third.LoadFromBinary2(der.data(), der.size()));
    EXPECT_EQ(third.getEncoded(), first.getEncoded());
}

TEST(CkCert, TheTrustedCertificatesOfTheSystem_AreReadAsOpenSslReadsThem) {
    const std::vector<std::string> certificates = SystemCertificates();
    ASSERT_GT(certificates.size(), 50U) << "package ca-certificates is missing";
    for (const std::string& der : certificates) {
        CkCert certificate = LoadedDer(der);
        const Owned<X509> owned = Decoded(d2i_X509, der);
        X509* const x509 = owned.get();
        EXPECT_EQ(PublicKeyBase64(LoadedDer(der), false),
                  ToBase64(Encoded(i2d_PUBKEY, X509_get0_pubkey(x509))));
        EXPECT_EQ(certificate.get_IntendedKeyUsage(),
                  X509_get_key_usage(x509) == UINT32_MAX ? 0 : X509_get_key_usage(x509) & 0xFF);
        EXPECT_EQ(certificate.getEncoded(), ToBase64(der));
        EXPECT_EQ(certificate.validToStr().size(), 29U);
        EXPECT_TRUE(IsUtf8(certificate.subjectDN()));
        EXPECT_NE(certificate.subjectDN(), "");
    }
}

} // namespace
