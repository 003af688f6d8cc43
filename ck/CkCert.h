#pragma once

#include "CkPublicKey.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

/// An X.509 certificate (RFC 5280). Before a successful load every text is empty and every number 0.
///
/// Texts are UTF-8 whatever the certificate's string types, and end at their first zero byte as C strings do.
/// No call throws on account of its input.
class CkCert {
public:
    CkCert();
    ~CkCert();
    CkCert(CkCert&&) noexcept;
    CkCert& operator=(CkCert&&) noexcept;

    /// Reads the DER certificate at the front of `length` bytes; what stands behind it is padding. False when
    /// there is none, or none that CkAsn can put into a SignedData.
    bool LoadFromBinary2(const char* der, std::size_t length);

    /// What the last failed call says about its failure, in words; empty after a success.
    std::string lastErrorText() const;

    /// Whether the last call that can fail (LoadFromBinary2, ExportPublicKey) succeeded.
    bool get_LastMethodSuccess() const;

    /// The subject's RDNs in the certificate's order, joined by ", ": "C=IN, O=Example, CN=Asha". Names: C,
    /// ST, L, O, OU, CN, SN, GN, title, street, postalCode, serialNumber, E (e-mail), DC, others by their
    /// dotted OID. Values escaped as in RFC 4514 section 2.4; the parts of a multi-valued RDN joined by "+".
    std::string subjectDN() const;

    /// The first common name and the first organisation of the subject.
    std::string subjectCN() const;
    std::string subjectO() const;

    /// The first e-mail address of the subject alternative name, else the subject's, else empty.
    std::string rfc822Name() const;

    /// SHA-1 of the DER: 40 upper-case hex digits.
    std::string sha1Thumbprint() const;

    /// Begin and end of the validity as "Tue, 15 Nov 2022 00:00:00 GMT"; English in every locale. Empty when
    /// it cannot be read.
    std::string validFromStr() const;
    std::string validToStr() const;

    /// The first octet of the key usage extension (digitalSignature 0x80 ... encipherOnly 0x01), 0 without
    /// one.
    std::uint32_t get_IntendedKeyUsage() const;

    /// The certificate's public key, or null when it cannot be read; see get_LastMethodSuccess().
    std::unique_ptr<CkPublicKey> ExportPublicKey();

    /// The DER as loaded, without padding, in Base64 on one line.
    std::string getEncoded() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};
