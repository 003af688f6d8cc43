#pragma once

#include "ck/CkByteData.h"
#include "ck/CkXml.h"

#include <string>

// The parts of the two SignedData structures (RFC 2315 and RFC 5652, section 5) in the XML form of their
// ASN.1. The paths are the construction: an element is created where its path is first named, behind its
// siblings. So the order of the calls is the order of the elements.

/// The parts of the signer's certificate that go into the structure. A certificate that cannot be parsed
/// leaves them empty. Logs the issuer.
struct SignerCertificate {
    explicit SignerCertificate(const char* CertB64);

    CkXml CertXmlObj;
    CkXml IsserDNXmlObj;
    std::string CertSN;
};

/// ContentInfo and the head of SignedData: version, digestAlgorithms, the type of the content.
void AppendHead(CkXml& xml, const char* hashOID);

/// The content, given in Base64.
void AppendContent(CkXml& xml, const std::string& contentB64);

/// The certificate, and the head of its SignerInfo: version, issuer and serial number, digest algorithm.
void AppendSigner(CkXml& xml, const SignerCertificate& signer, const char* hashOID);

void AppendSignedAttributes(CkXml& xml, const std::string& pdfHash);

void AppendSignatureAlgorithm(CkXml& xml);

/// The signed attributes as they are signed: under the tag SET, not [0] (RFC 5652 section 5.4).
CkByteData SignedAttributesDer(const std::string& pdfHash);

/// Puts the signature behind the rest and returns the finished structure in Base64.
std::string Finish(CkXml xml, const std::string& SignStrB64);
