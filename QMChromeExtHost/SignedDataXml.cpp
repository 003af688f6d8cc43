#include "SignedDataXml.h"

#include "QMHostShared.h"
#include "ck/CkAsn.h"

#include <memory>

namespace {

constexpr char kOidData[] = "1.2.840.113549.1.7.1";
constexpr char kOidSignedData[] = "1.2.840.113549.1.7.2";
constexpr char kOidContentType[] = "1.2.840.113549.1.9.3";
constexpr char kOidMessageDigest[] = "1.2.840.113549.1.9.4";
constexpr char kOidRsaEncryption[] = "1.2.840.113549.1.1.1";

/// Makes the element at `path` a constructed [0].
void MakeContextTag0(CkXml& xml, const char* path) {
    xml.UpdateAttrAt(path, true, "tag", "0");
    xml.UpdateAttrAt(path, true, "constructed", "1");
}

} // namespace

SignerCertificate::SignerCertificate(const char* CertB64) {
    CkAsn signingCertAsn;
    signingCertAsn.LoadEncoded(CertB64, "Base64");
    CertXmlObj.LoadXml2(signingCertAsn.asnToXml(), true);
    CertSN = CertXmlObj.getChildContent("sequence|int");

    // Version, serial number, signature algorithm, issuer (RFC 5280 section 4.1).
    const std::unique_ptr<CkAsn> tbsCertificate = signingCertAsn.GetSubItem(0);
    const std::unique_ptr<CkAsn> issuer = tbsCertificate ? tbsCertificate->GetSubItem(3) : nullptr;
    const std::string issuerXML = issuer ? issuer->asnToXml() : std::string();
    LogTextToFile(issuerXML, DEBUG);
    IsserDNXmlObj.LoadXml2(issuerXML, true);
}

void AppendHead(CkXml& xml, const char* hashOID) {
    xml.put_Tag("sequence");
    xml.UpdateChildContent("oid", kOidSignedData);
    MakeContextTag0(xml, "contextSpecific");
    xml.UpdateChildContent("contextSpecific|sequence|int", "01");
    xml.UpdateChildContent("contextSpecific|sequence|set|sequence|oid", hashOID);
    xml.UpdateChildContent("contextSpecific|sequence|set|sequence|null", "");
    xml.UpdateChildContent("contextSpecific|sequence|sequence|oid", kOidData);
}

void AppendContent(CkXml& xml, const std::string& contentB64) {
    MakeContextTag0(xml, "contextSpecific|sequence|sequence|contextSpecific");
    xml.UpdateChildContent("contextSpecific|sequence|sequence|contextSpecific|octets", contentB64);
}

void AppendSigner(CkXml& xml, const SignerCertificate& signer, const char* hashOID) {
    MakeContextTag0(xml, "contextSpecific|sequence|contextSpecific");
    xml.FindChild("contextSpecific|sequence|contextSpecific")->AddChildTree(signer.CertXmlObj);

    xml.UpdateChildContent("contextSpecific|sequence|set[1]|sequence|int", "01");
    xml.UpdateChildContent("contextSpecific|sequence|set[1]|sequence|sequence", "");
    xml.FindChild("contextSpecific|sequence|set[1]|sequence|sequence")->AddChildTree(signer.IsserDNXmlObj);
    xml.UpdateChildContent("contextSpecific|sequence|set[1]|sequence|sequence|int", signer.CertSN);
    xml.UpdateChildContent("contextSpecific|sequence|set[1]|sequence|sequence[1]|oid", hashOID);
    xml.UpdateChildContent("contextSpecific|sequence|set[1]|sequence|sequence[1]|null", "");
}

void AppendSignedAttributes(CkXml& xml, const std::string& pdfHash) {
    MakeContextTag0(xml, "contextSpecific|sequence|set[1]|sequence|contextSpecific");
    xml.UpdateChildContent("contextSpecific|sequence|set[1]|sequence|contextSpecific|sequence|oid",
                           kOidContentType);
    xml.UpdateChildContent("contextSpecific|sequence|set[1]|sequence|contextSpecific|sequence|set|oid",
                           kOidData);
    xml.UpdateChildContent("contextSpecific|sequence|set[1]|sequence|contextSpecific|sequence[1]|oid",
                           kOidMessageDigest);
    xml.UpdateChildContent("contextSpecific|sequence|set[1]|sequence|contextSpecific|sequence[1]|set|octets",
                           pdfHash);
}

void AppendSignatureAlgorithm(CkXml& xml) {
    xml.UpdateChildContent("contextSpecific|sequence|set[1]|sequence|sequence[2]|oid", kOidRsaEncryption);
    xml.UpdateChildContent("contextSpecific|sequence|set[1]|sequence|sequence[2]|null", "");
}

CkByteData SignedAttributesDer(const std::string& pdfHash) {
    CkAsn DummySequence;
    const std::unique_ptr<CkAsn> SignedAttributesSet = DummySequence.AppendSetR();
    const std::unique_ptr<CkAsn> AttribContentType = SignedAttributesSet->AppendSequenceR();
    AttribContentType->AppendOid(kOidContentType);
    AttribContentType->AppendSetR()->AppendOid(kOidData);
    const std::unique_ptr<CkAsn> MessageDigest = SignedAttributesSet->AppendSequenceR();
    MessageDigest->AppendOid(kOidMessageDigest);
    MessageDigest->AppendSetR()->AppendOctets(pdfHash, "Base64");

    CkByteData signedAttrBytes;
    SignedAttributesSet->GetBinaryDer(signedAttrBytes);
    return signedAttrBytes;
}

std::string Finish(CkXml xml, const std::string& SignStrB64) {
    xml.UpdateChildContent("contextSpecific|sequence|set[1]|sequence|octets", SignStrB64);
    std::string xmlText = xml.getXml();
    xml = CkXml();
    CkAsn signedData;
    signedData.LoadAsnXml(std::move(xmlText));
    return signedData.getEncodedDer("Base64");
}
