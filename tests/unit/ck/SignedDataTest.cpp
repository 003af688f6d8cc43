// SignedData built through the XML form by paths, judged by OpenSSL.

#include "ck/CkAsn.h"
#include "ck/CkXml.h"

#include "support/Bytes.h"
#include "support/Certificates.h"

#include <gtest/gtest.h>
#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/evp.h>

#include <memory>

namespace {

std::string Digest(const std::string& data) {
    std::string digest(32, '\0');
    EVP_Digest(data.data(), data.size(), reinterpret_cast<unsigned char*>(digest.data()), nullptr,
               EVP_sha256(), nullptr);
    return digest;
}

std::string RsaSignature(const std::string& data) {
    const std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    std::string signature(256, '\0');
    std::size_t size = signature.size();
    EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, KeyOf(KeyKind::Rsa));
    EXPECT_EQ(EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &size,
                             reinterpret_cast<const unsigned char*>(data.data()), data.size()),
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
    const auto* next = reinterpret_cast<const unsigned char*>(der.data());
    const std::unique_ptr<CMS_ContentInfo, void (*)(CMS_ContentInfo*)> cms(
        d2i_CMS_ContentInfo(nullptr, &next, static_cast<long>(der.size())), CMS_ContentInfo_free);
    ASSERT_NE(cms, nullptr) << ERR_reason_error_string(ERR_peek_error());
    EXPECT_EQ(next, reinterpret_cast<const unsigned char*>(der.data() + der.size()));
    const std::unique_ptr<BIO, int (*)(BIO*)> in(
        BIO_new_mem_buf(content.data(), static_cast<int>(content.size())), BIO_free);
    const std::unique_ptr<BIO, int (*)(BIO*)> out(BIO_new(BIO_s_mem()), BIO_free);
    EXPECT_EQ(CMS_verify(cms.get(), nullptr, nullptr, detached ? in.get() : nullptr, out.get(),
                         CMS_NO_SIGNER_CERT_VERIFY | CMS_BINARY),
              1)
        << ERR_reason_error_string(ERR_peek_error());
    char* verified = nullptr;
    const long size = BIO_get_mem_data(out.get(), &verified);
    EXPECT_TRUE(std::string_view(verified, static_cast<std::size_t>(size)) == content);

    unsigned char* again = nullptr;
    const int length = i2d_CMS_ContentInfo(cms.get(), &again);
    EXPECT_TRUE(std::string_view(reinterpret_cast<char*>(again), static_cast<std::size_t>(length)) == der);
    OPENSSL_free(again);
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
    xml.UpdateChildContent(attributes + "|sequence[1]|set|octets", ToBase64(Digest(content)));

    // What is signed carries the tag of SET instead of [0] (RFC 5652 section 5.4).
    CkAsn parent;
    const std::unique_ptr<CkAsn> set = parent.AppendSetR();
    const std::unique_ptr<CkAsn> type = set->AppendSequenceR();
    type->AppendOid("1.2.840.113549.1.9.3");
    type->AppendSetR()->AppendOid(kData);
    const std::unique_ptr<CkAsn> digest = set->AppendSequenceR();
    digest->AppendOid("1.2.840.113549.1.9.4");
    digest->AppendSetR()->AppendOctets(ToBase64(Digest(content)), "Base64");
    CkByteData toSign;
    set->GetBinaryDer(toSign);
    const std::string bytes(reinterpret_cast<const char*>(toSign.getRange(0, toSign.getSize())),
                            toSign.getSize());
    ExpectVerifies(Finish(xml, RsaSignature(bytes)), content, true);
}

} // namespace
