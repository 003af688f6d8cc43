// SignedData built through the XML form by paths, judged by OpenSSL.

#include "ck/CkAsn.h"
#include "ck/CkXml.h"

#include "support/Bytes.h"
#include "support/Certificates.h"
#include "support/Verify.h"

#include <gtest/gtest.h>
#include <openssl/err.h>

#include <memory>

namespace {

std::string RsaSignature(const std::string& data) {
    const Owned<EVP_MD_CTX> context(EVP_MD_CTX_new());
    std::string signature(256, '\0');
    std::size_t size = signature.size();
    EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, KeyOf(KeyKind::Rsa));
    EXPECT_EQ(EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &size,
                             Octets(data), data.size()),
              1);
    return signature;
}

void MakeContextTag0(CkXml& xml, const std::string& path) {
    xml.UpdateAttrAt(path, true, "tag", "0");
    xml.UpdateAttrAt(path, true, "constructed", "1");
}

const std::string kSignedData = "contextSpecific|sequence|";
const std::string kSignerInfo = kSignedData + "set[1]|sequence|";
constexpr char kSha256[] = "2.16.840.1.101.3.4.2.1";
constexpr char kData[] = "1.2.840.113549.1.7.1";

/// A SignedData up to its SignerInfo's digest algorithm, with `content` in it or none.
CkXml Begin(const std::string& certificateDer, const std::string* content) {
    CkXml xml;
    xml.put_Tag("sequence");
    xml.UpdateChildContent("oid", "1.2.840.113549.1.7.2");
    MakeContextTag0(xml, "contextSpecific");
    xml.UpdateChildContent(kSignedData + "int", "01");
    xml.UpdateChildContent(kSignedData + "set|sequence|oid", kSha256);
    xml.UpdateChildContent(kSignedData + "set|sequence|null", "");
    xml.UpdateChildContent(kSignedData + "sequence|oid", kData);
    if (content) {
        MakeContextTag0(xml, kSignedData + "sequence|contextSpecific");
        xml.UpdateChildContent(kSignedData + "sequence|contextSpecific|octets", ToBase64(*content));
    }

    CkAsn certificate;
    EXPECT_TRUE(certificate.LoadEncoded(ToBase64(certificateDer), "Base64"));
    CkXml certificateXml, issuerXml;
    EXPECT_TRUE(certificateXml.LoadXml2(certificate.asnToXml(), true));
    EXPECT_TRUE(issuerXml.LoadXml2(certificate.GetSubItem(0)->GetSubItem(3)->asnToXml(), true));
    MakeContextTag0(xml, kSignedData + "contextSpecific");
    xml.FindChild(kSignedData + "contextSpecific")->AddChildTree(certificateXml);
    xml.UpdateChildContent(kSignerInfo + "int", "01");
    xml.UpdateChildContent(kSignerInfo + "sequence", "");
    xml.FindChild(kSignerInfo + "sequence")->AddChildTree(issuerXml);
    xml.UpdateChildContent(kSignerInfo + "sequence|int", certificateXml.getChildContent("sequence|int"));
    xml.UpdateChildContent(kSignerInfo + "sequence[1]|oid", kSha256);
    xml.UpdateChildContent(kSignerInfo + "sequence[1]|null", "");
    return xml;
}

std::string Finish(CkXml& xml, const std::string& signature) {
    xml.UpdateChildContent(kSignerInfo + "sequence[2]|oid", "1.2.840.113549.1.1.1");
    xml.UpdateChildContent(kSignerInfo + "sequence[2]|null", "");
    xml.UpdateChildContent(kSignerInfo + "octets", ToBase64(signature));
    CkAsn asn;
    EXPECT_TRUE(asn.LoadAsnXml(xml.getXml()));
    return FromBase64(asn.getEncodedDer("Base64"));
}

/// Whether OpenSSL takes `der` as a signature over `content`, and as DER that it would have written itself.
void ExpectVerifies(const std::string& der, const std::string& content, bool detached) {
    EXPECT_TRUE(VerifiedContent(der, detached ? &content : nullptr) == content)
        << ERR_reason_error_string(ERR_peek_error());
    const Owned<CMS_ContentInfo> cms = Decoded(d2i_CMS_ContentInfo, der);
    ASSERT_NE(cms, nullptr);
    EXPECT_TRUE(Encoded(i2d_CMS_ContentInfo, cms.get()) == der);
}

std::string Encapsulated(const std::string& certificate, const std::string& content) {
    CkXml xml = Begin(certificate, &content);
    return Finish(xml, RsaSignature(content));
}

TEST(SignedData, WithEncapsulatedContent_IsTakenByOpenSsl) {
    const std::string certificate = CertificateOrder{.key = KeyKind::Rsa}.der();
    for (const std::string& content :
         {std::string("abc"), std::string(100'000, 'x'), std::string("\xFF\x00 <&>", 6)})
        ExpectVerifies(Encapsulated(certificate, content), content, false);
}

TEST(SignedData, ByCertificatesWithOddSerialsAndNames_IsTakenByOpenSsl) {
    for (const CertificateOrder& order :
         {CertificateOrder{.serial = "\xFF\x01", .key = KeyKind::Rsa},
          CertificateOrder{.serial = "\x80", .negativeSerial = true, .key = KeyKind::Rsa},
          CertificateOrder{.serial = std::string(20, '\x7F'), .key = KeyKind::Rsa},
          CertificateOrder{.subject = {{"CN", " "}, {"O", "  a\t"}, {"OU", "<é>"}, {"L", "x\x01"}},
          .key = KeyKind::Rsa},
          CertificateOrder{
              .subject = {{"CN", FromHex("00410906"), V_ASN1_BMPSTRING}, {"O", "caf\xE9", V_ASN1_T61STRING}},
             .key = KeyKind::Rsa}})
        ExpectVerifies(Encapsulated(order.der(), "content"), "content", false);
}

TEST(SignedData, WithA32MiBContent_IsTakenByOpenSsl) {
    const std::string content(32 * 1024 * 1024, 't');
    ExpectVerifies(Encapsulated(CertificateOrder{.key = KeyKind::Rsa}.der(), content), content, false);
}

TEST(SignedData, DetachedWithSignedAttributes_IsTakenByOpenSsl) {
    const std::string content = "the document";
    CkXml xml = Begin(CertificateOrder{.key = KeyKind::Rsa}.der(), nullptr);
    const std::string attributes = kSignerInfo + "contextSpecific";
    MakeContextTag0(xml, attributes);
    xml.UpdateChildContent(attributes + "|sequence|oid", "1.2.840.113549.1.9.3");
    xml.UpdateChildContent(attributes + "|sequence|set|oid", kData);
    xml.UpdateChildContent(attributes + "|sequence[1]|oid", "1.2.840.113549.1.9.4");
    xml.UpdateChildContent(attributes + "|sequence[1]|set|octets", ToBase64(DigestOf("SHA256", content)));

    // What is signed carries the tag of SET instead of [0] (RFC 5652 section 5.4).
    CkAsn parent;
    const std::unique_ptr<CkAsn> set = parent.AppendSetR();
    const std::unique_ptr<CkAsn> type = set->AppendSequenceR();
    type->AppendOid("1.2.840.113549.1.9.3");
    type->AppendSetR()->AppendOid(kData);
    const std::unique_ptr<CkAsn> digest = set->AppendSequenceR();
    digest->AppendOid("1.2.840.113549.1.9.4");
    digest->AppendSetR()->AppendOctets(ToBase64(DigestOf("SHA256", content)), "Base64");
    CkByteData toSign;
    set->GetBinaryDer(toSign);
    const std::string bytes(reinterpret_cast<const char*>(toSign.getRange(0, toSign.getSize())),
                            toSign.getSize());
    ExpectVerifies(Finish(xml, RsaSignature(bytes)), content, true);
}

} // namespace
