// Certificates that are broken, or odd on purpose.

#include "ck/CkAsn.h"
#include "ck/CkCert.h"

#include "OddCertificates.h"
#include "support/Bytes.h"
#include "support/Certificates.h"

#include <gtest/gtest.h>
#include <openssl/err.h>

namespace {

using namespace std::string_literals;

CkCert Loaded(const CertificateOrder& order) {
    const std::string der = order.der();
    CkCert certificate;
    EXPECT_TRUE(certificate.LoadFromBinary2(der.data(), der.size())) << certificate.lastErrorText();
    EXPECT_EQ(certificate.lastErrorText(), "");
    EXPECT_TRUE(certificate.get_LastMethodSuccess());
    return certificate;
}

/// The certificate `der` with `parameters` behind the object identifier of its (outer) signature algorithm.
std::string WithSignatureParameters(const std::string& der, const std::string& parameters) {
    CkAsn certificate;
    EXPECT_TRUE(certificate.LoadEncoded(ToBase64(der), "Base64"));
    const auto bytesOf = [&](int index) {
        CkByteData bytes;
        certificate.GetSubItem(index)->GetBinaryDer(bytes);
        return std::string(bytes.getData(), bytes.getSize());
    };
    CkByteData oid;
    certificate.GetSubItem(1)->GetSubItem(0)->GetBinaryDer(oid);
    const std::string algorithm = DerValue(0x30, std::string(oid.getData(), oid.getSize()) + parameters);
    return DerValue(0x30, bytesOf(0) + algorithm + bytesOf(2));
}

std::string ErrorOf(const std::string& bytes) {
    CkCert certificate;
    EXPECT_FALSE(certificate.LoadFromBinary2(bytes.data(), bytes.size()));
    EXPECT_FALSE(certificate.get_LastMethodSuccess());
    return certificate.lastErrorText();
}

TEST(CkCertHostile, BytesThatAreNoCertificate_AreRefusedWithTheCallAndItsReason) {
    for (const std::string& bytes : {"x"s, "hello, world"s, FromHex("30 00"), FromHex("30 80 00 00"),
                                     std::string(1000, '\0'), std::string(1000, '\xFF')}) {
        const std::string error = ErrorOf(bytes);
        EXPECT_TRUE(error.starts_with("d2i_X509: ")) << error;
        EXPECT_GT(error.size(), std::string("d2i_X509: ").size());
        EXPECT_EQ(error.find("error 0"), std::string::npos) << error;
    }
}

TEST(CkCertHostile, NoBytesAtAll_AreRefused) {
    CkCert certificate;
    EXPECT_FALSE(certificate.LoadFromBinary2(nullptr, 0));
    EXPECT_FALSE(certificate.LoadFromBinary2("", 0));
    EXPECT_NE(certificate.lastErrorText(), "");
}

TEST(CkCertHostile, BytesBehindTheCertificate_ArePaddingAndNoPartOfIt) {
    for (const CertificateOrder& order :
         {CertificateOrder{},
          CertificateOrder{.subject = {{"CN", "\xC3", V_ASN1_UTF8STRING, false, true}}}}) {
        const std::string der = order.der();
        CkCert own;
        ASSERT_TRUE(own.LoadFromBinary2(der.data(), der.size()));
        for (const std::string& padding : {"\0"s, std::string(4096, '\xFF'), der}) {
            const std::string padded = der + padding;
            CkCert certificate;
            ASSERT_TRUE(certificate.LoadFromBinary2(padded.data(), padded.size()));
            EXPECT_EQ(certificate.getEncoded(), ToBase64(der));
            EXPECT_EQ(certificate.sha1Thumbprint(), own.sha1Thumbprint());
        }
    }
}

/// The certificate with a length of its outermost SEQUENCE that takes one octet more than it has to.
std::string WithLongOuterLength(std::string der) {
    return der.replace(0, 2, "\x30\x83\x00"s); // was 30 82
}

TEST(CkCertHostile, ACertificateInBerThatIsNoDer_IsRefused) {
    const std::string der = CertificateOrder{}.der();
    EXPECT_EQ(ErrorOf(WithLongOuterLength(der)), "the certificate is not in DER");
    EXPECT_EQ(ErrorOf("\x30\x80"s + der.substr(4) + "\0\0"s), "the certificate is not in DER");
}

TEST(CkCertHostile, WhatIsNoDerWithinAName_IsRefusedThoughLibcryptoDoesNotLookThere) {
    std::string der = CertificateOrder{.subject = {{"CN", "ab"}}}.der();
    const std::string name = FromHex("0C 02") + "ab", endOfContents = FromHex("30 02 00 00");
    for (std::size_t at = der.find(name); at != std::string::npos; at = der.find(name))
        der.replace(at, name.size(), endOfContents);
    EXPECT_TRUE(Decoded(d2i_X509, der));
    EXPECT_EQ(ErrorOf(der), "the certificate is not in DER");
}

TEST(CkCertHostile, WhatLoads_IsAStructureToTheBuilders) {
    std::vector<std::string> all = OddCertificates();
    for (std::size_t i = all.size(); i-- > 0;) {
        all.push_back(all[i] + "padding");
        all.push_back(WithLongOuterLength(all[i]));
    }
    for (const int levels : {100, 118, 119, 120, 121, 122, 123, 124, 125, 126, 127, 128}) {
        std::string nested = FromHex("05 00");
        for (int i = 0; i < levels; ++i)
            nested = DerValue(0x30, nested);
        all.push_back(WithSignatureParameters(CertificateOrder{}.der(), nested));
    }
    int loaded = 0;
    for (const std::string& der : all) {
        CkCert certificate;
        if (!certificate.LoadFromBinary2(der.data(), der.size()))
            continue;
        ++loaded;
        CkAsn asn, signedData;
        ASSERT_TRUE(asn.LoadEncoded(certificate.getEncoded(), "Base64"));
        const std::string depth = "<sequence><contextSpecific tag=\"0\" constructed=\"1\"><sequence>"
                                  "<contextSpecific tag=\"0\" constructed=\"1\">";
        const std::string end = "</contextSpecific></sequence></contextSpecific></sequence>";
        ASSERT_TRUE(signedData.LoadAsnXml(depth + asn.asnToXml() + end)) << ToHex(der);
        EXPECT_NE(FromBase64(signedData.getEncodedDer("Base64")).find(FromBase64(certificate.getEncoded())),
                  std::string::npos);
    }
    EXPECT_GT(loaded, static_cast<int>(all.size() / 2));
}

TEST(CkCertHostile, ACertificateCutShort_IsRefusedAtEveryLength) {
    const std::string der = CertificateOrder{}.der();
    for (std::size_t size = 0; size < der.size(); ++size)
        ASSERT_NE(ErrorOf(der.substr(0, size)), "") << size;
}

TEST(CkCertHostile, AVersion1Certificate_IsRead) {
    CkCert certificate = Loaded({.version1 = true});
    EXPECT_EQ(certificate.subjectDN(), "C=IN, O=Example, CN=Asha Rao");
    EXPECT_EQ(certificate.get_IntendedKeyUsage(), 0U);
    EXPECT_EQ(certificate.rfc822Name(), "");
}

TEST(CkCertHostile, ASubjectWithoutAttributes_IsEmpty) {
    const CkCert certificate = Loaded({.subject = {}});
    EXPECT_EQ(certificate.subjectDN() + certificate.subjectCN() + certificate.subjectO(), "");
}

TEST(CkCertHostile, ANameOf70000Characters_IsGivenWhole) {
    EXPECT_EQ(Loaded({.subject = {{"CN", std::string(70'000, 'x')}}}).subjectCN(), std::string(70'000, 'x'));
}

TEST(CkCertHostile, AThousandAttributes_AreAllInTheDn) {
    std::vector<Attribute> subject;
    for (int i = 0; i < 1000; ++i)
        subject.push_back({"OU", "u"});
    EXPECT_EQ(Loaded({.subject = subject}).subjectDN().size(), 1000 * 4 + 999 * 2U);
}

TEST(CkCertHostile, ABrokenRsaKey_FailsWithTheCallAndItsReason) {
    CkCert certificate = Loaded({.key = KeyKind::BrokenRsa});
    EXPECT_EQ(certificate.ExportPublicKey(), nullptr);
    EXPECT_FALSE(certificate.get_LastMethodSuccess());
    EXPECT_TRUE(certificate.lastErrorText().starts_with("X509_get0_pubkey: ")) << certificate.lastErrorText();
    EXPECT_EQ(certificate.lastErrorText().find("error 0"), std::string::npos) << certificate.lastErrorText();
    EXPECT_EQ(certificate.subjectCN(), "Asha Rao") << "the rest is still there";
}

TEST(CkCertHostile, AKeyOfAnUnknownAlgorithm_FailsWithTheCallAndItsReason) {
    CkCert certificate = Loaded({.key = KeyKind::UnknownAlgorithm});
    EXPECT_EQ(certificate.ExportPublicKey(), nullptr);
    EXPECT_EQ(certificate.lastErrorText(), "X509_get0_pubkey: decode error");
}

TEST(CkCertHostile, ExportPublicKey_ClearsTheFailureBeforeIt) {
    CkCert certificate;
    certificate.ExportPublicKey();
    const std::string der = CertificateOrder{}.der();
    ASSERT_TRUE(certificate.LoadFromBinary2(der.data(), der.size()));
    EXPECT_NE(certificate.ExportPublicKey(), nullptr);
    EXPECT_TRUE(certificate.get_LastMethodSuccess());
    EXPECT_EQ(certificate.lastErrorText(), "");
}

TEST(CkCertHostile, BrokenExtensions_CountAsMissing) {
    for (const char* broken : {"", "03", "03 02 07", "04 01 80", "30 80", "FF FF"}) {
        const CkCert certificate =
            Loaded({.subject = {{"emailAddress", "dn@example.in", V_ASN1_IA5STRING}},
                    .extensions = {{"2.5.29.15", FromHex(broken)}, {"2.5.29.17", FromHex(broken)}}});
        EXPECT_EQ(certificate.get_IntendedKeyUsage(), 0U) << broken;
        EXPECT_EQ(certificate.rfc822Name(), "dn@example.in") << broken;
    }
}

TEST(CkCertHostile, AnEMailAddressWithAZeroByteOrNoAscii_IsValidAndEndsThere) {
    EXPECT_EQ(Loaded({.extensions = {{"2.5.29.17", FromHex("30 05 81 03 61 00 62")}}}).rfc822Name(), "a");
    EXPECT_TRUE(IsUtf8(Loaded({.extensions = {{"2.5.29.17", FromHex("30 04 81 02 FF E9")}}}).rfc822Name()));
}

TEST(CkCertHostile, ADateThatIsNone_IsEmpty) {
    for (const char* date : {"", "x", "221315000000Z", "22111500", "2022111500000Z", "221115000000"}) {
        const std::string der = CertificateOrder{.notBefore = date}.der();
        CkCert certificate;
        if (certificate.LoadFromBinary2(der.data(), der.size())) {
            EXPECT_EQ(certificate.validFromStr(), "") << date;
        }
    }
}

TEST(CkCertHostile, NothingIsLeftInTheErrorQueueOfOpenSsl) {
    ERR_clear_error();
    ErrorOf("x");
    CkCert certificate = Loaded({.extensions = {{"2.5.29.17", "x"}}, .key = KeyKind::BrokenRsa});
    certificate.ExportPublicKey();
    certificate.rfc822Name();
    certificate.subjectDN();
    EXPECT_EQ(ERR_peek_error(), 0UL);
}

TEST(CkCertHostile, TheErrorsOfOthersInTheQueue_AreNotShown) {
    ERR_raise(ERR_LIB_USER, ERR_R_PASSED_NULL_PARAMETER);
    const std::string error = ErrorOf("x");
    EXPECT_EQ(error.find("null parameter"), std::string::npos) << error;
}

TEST(CkCertHostile, EveryOddCertificate_GivesValidTexts) {
    for (const std::string& der : OddCertificates()) {
        CkCert certificate;
        ASSERT_TRUE(certificate.LoadFromBinary2(der.data(), der.size())) << certificate.lastErrorText();
        for (const std::string& text :
             {certificate.subjectDN(), certificate.subjectCN(), certificate.subjectO(),
              certificate.rfc822Name(), certificate.validToStr()})
            EXPECT_TRUE(IsUtf8(text)) << ToHex(text);
    }
}

} // namespace
