// The two SignedData structures (RFC 2315 and RFC 5652, section 5), built as the XML form of their ASN.1. The
// paths are the construction: an element is created where its path is first named, behind its siblings.

#include "QMNativeMessagingHost.h"

#include "QMTools.h"
#include "ck/CkAsn.h"
#include "ck/CkXml.h"

#include <fstream>
#include <memory>
#include <stdexcept>

namespace {

constexpr char kOidData[] = "1.2.840.113549.1.7.1";
constexpr char kOidSignedData[] = "1.2.840.113549.1.7.2";
constexpr char kOidContentType[] = "1.2.840.113549.1.9.3";
constexpr char kOidMessageDigest[] = "1.2.840.113549.1.9.4";
constexpr char kOidRsaEncryption[] = "1.2.840.113549.1.1.1";

/// The parts of the signer's certificate that go into the structure. A certificate that cannot be parsed
/// leaves them empty.
struct SignerCertificate {
    explicit SignerCertificate(const char* CertB64) {
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

    CkXml CertXmlObj;
    CkXml IsserDNXmlObj;
    std::string CertSN;
};

/// Makes the element at `path` a constructed [0].
void MakeContextTag0(CkXml& xml, const char* path) {
    xml.UpdateAttrAt(path, true, "tag", "0");
    xml.UpdateAttrAt(path, true, "constructed", "1");
}

/// ContentInfo and the head of SignedData: version, digestAlgorithms, the type of the content.
void AppendHead(CkXml& xml, const char* hashOID) {
    xml.put_Tag("sequence");
    xml.UpdateChildContent("oid", kOidSignedData);
    MakeContextTag0(xml, "contextSpecific");
    xml.UpdateChildContent("contextSpecific|sequence|int", "01");
    xml.UpdateChildContent("contextSpecific|sequence|set|sequence|oid", hashOID);
    xml.UpdateChildContent("contextSpecific|sequence|set|sequence|null", "");
    xml.UpdateChildContent("contextSpecific|sequence|sequence|oid", kOidData);
}

/// The certificate, and the head of its SignerInfo: version, issuer and serial number, digest algorithm.
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

/// The signed attributes as they are signed: under the tag SET, not [0] (RFC 5652 section 5.4).
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

// A content has up to 48 MiB, and passes through several forms. What takes one by value is rid of it at its
// end.

std::string TextToBase64(std::string text) {
    CkByteData bytes;
    bytes.appendStr(std::move(text));
    return bytes.getEncoded("Base64");
}

CkByteData Base64ToBytes(std::string text) {
    CkByteData bytes;
    bytes.appendEncoded(text, "Base64");
    return bytes;
}

/// Puts the signature behind the rest and returns the finished structure in Base64.
std::string Finish(CkXml xml, const std::string& SignStrB64) {
    xml.UpdateChildContent("contextSpecific|sequence|set[1]|sequence|octets", SignStrB64);
    std::string xmlText = xml.getXml();
    xml = CkXml();
    CkAsn signedData;
    signedData.LoadAsnXml(std::move(xmlText));
    return signedData.getEncodedDer("Base64");
}

/// At the debug level the latest structure is kept in the working directory.
void WriteDebugCopy(const char* fileName, const std::string& base64) {
    if (AppLogLevel == DEBUG)
        std::ofstream(fileName) << base64;
}

} // namespace

OperationResult QMNativeMessagingHost::GenPkcs7Sign(std::string pdfHash, std::string hashAlgo,
                                                    const char* CertB64, const char* SearchedCert_CKA_ID) {
    const char* hashOID = QMTools::GetHashOid(hashAlgo);
    LogTextToFile("Entered GenPkcs7Sign", DEBUG);
    try {
        const SignerCertificate signer(CertB64);
        CkXml xml;
        AppendHead(xml, hashOID);
        AppendSigner(xml, signer, hashOID);
        AppendSignedAttributes(xml, pdfHash);
        AppendSignatureAlgorithm(xml);

        OperationResult signResult = SignData(SearchedCert_CKA_ID, SignedAttributesDer(pdfHash), hashAlgo);
        if (!signResult.success)
            return signResult;
        std::string Pkcs7b64 = Finish(std::move(xml), signResult.text);
        WriteDebugCopy("PKCS7Sign.txt", Pkcs7b64);
        return {true, std::move(Pkcs7b64)};
    } catch (const std::runtime_error& e) {
        return Failure("GenPkcs7Sign", e);
    }
}

OperationResult QMNativeMessagingHost::GenCMSSign(std::string hash, std::string hashAlgo, const char* CertB64,
                                                  const char* SearchedCert_CKA_ID) {
    const char* hashOID = QMTools::GetHashOid(hashAlgo);
    LogTextToFile("Entered GenCMSSign", DEBUG);
    try {
        std::string b64OfHashBytes = TextToBase64(std::move(hash));
        const SignerCertificate signer(CertB64);
        CkXml xml;
        AppendHead(xml, hashOID);
        MakeContextTag0(xml, "contextSpecific|sequence|sequence|contextSpecific");
        xml.UpdateChildContent("contextSpecific|sequence|sequence|contextSpecific|octets", b64OfHashBytes);
        AppendSigner(xml, signer, hashOID);
        AppendSignatureAlgorithm(xml);

        CkByteData bHash = Base64ToBytes(std::move(b64OfHashBytes));
        if (LogsAt(DEBUG))
            LogTextToFile("GST SIGN BYTES B4 SIGN: " + bHash.getEncoded("Hex"), DEBUG);
        OperationResult signResult = SignData(SearchedCert_CKA_ID, std::move(bHash), hashAlgo);
        if (!signResult.success)
            return signResult;
        std::string CMSb64 = Finish(std::move(xml), signResult.text);
        WriteDebugCopy("CMSSign.txt", CMSb64);
        return {true, std::move(CMSb64)};
    } catch (const std::runtime_error& e) {
        return Failure("GenCMSSign", e);
    }
}
