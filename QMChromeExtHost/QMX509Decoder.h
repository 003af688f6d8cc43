#pragma once

#include <cstddef>
#include <string>

class CkJsonObject;

/// A certificate's row as the user gets to know it.
struct ShownCard {
    std::string drawn;  ///< HTML
    std::string spoken; ///< for a screen reader
};

/// Turns the DER of an X.509 certificate into what the browser and the user get to see. Stateless, never
/// throws on account of the bytes.
class QMX509Decoder {
public:
    /// The certificate's record, a new object that the caller owns, never null. Members in this order:
    /// "SelCertSubject", "CertThumbPrint", "eMail", "ValidFrom" (RFC 3339, UTC), "ExpDate" (RFC 822),
    /// "PublicKey" and "Cert" (Base64); "ErrMsg" takes the place of what could not be read.
    CkJsonObject* GetX509CertDetails(const char* der, std::size_t length);

    /// The certificate's row in the window's list, as HTML; the text "ChainCert" for a certificate that is no
    /// signing certificate; "QMHostError: " and the reason for bytes that are no certificate.
    std::string GetX509CertHTML(const char* der, std::size_t length);

    /// The same row as the window shows it: each text out of the certificate is made harmless by itself
    /// before it comes among the others, so that no name can be more than a name. For certificates that have
    /// a row.
    ShownCard GetX509CertShown(const char* der, std::size_t length);
};
