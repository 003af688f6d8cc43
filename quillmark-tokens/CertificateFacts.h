#pragma once

#include "QMTokenDriver/Attributes.h"

#include <ctime>
#include <optional>
#include <string>
#include <vector>

namespace tokendriver::tool {

/// What a person wants to know of an X.509 certificate on a token, and why it may be of no use for signing.
struct CertificateFacts {
    std::string subject;      ///< "O=Example, CN=Asha", UTF-8
    std::string issuer;       ///< likewise
    std::string serialNumber; ///< hex
    std::string thumbprint;   ///< SHA-1 of the DER, upper-case hex, as the host shows it
    std::string notBefore;    ///< "2022-11-15T00:00:00Z"
    std::string notAfter;
    Bytes modulus; ///< of its RSA key, without leading zero bytes; empty for other keys
    std::vector<std::string>
        objections; ///< why it is not offered, as far as the certificate itself tells; empty: nothing
};

/// Reads one DER certificate; nothing when it is none. `now` decides on its validity.
std::optional<CertificateFacts> ReadCertificate(const Bytes& der, std::time_t now);

} // namespace tokendriver::tool
