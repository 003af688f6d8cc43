#pragma once

#include "QMTokenDriver/Attributes.h"

#include <optional>
#include <string>

namespace tokendriver::tool {

/// What a person wants to know of an X.509 certificate on a token.
struct CertificateFacts {
    std::string subject;      ///< "O=Example, CN=Asha", UTF-8
    std::string issuer;       ///< likewise
    std::string serialNumber; ///< hex
    std::string thumbprint;   ///< SHA-1 of the DER, upper-case hex, as the host shows it
    std::string notBefore;    ///< "2022-11-15T00:00:00Z"
    std::string notAfter;
};

/// Reads one DER certificate; nothing when it is none.
std::optional<CertificateFacts> ReadCertificate(const Bytes& der);

} // namespace tokendriver::tool
