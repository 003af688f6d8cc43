#pragma once

#include <string>

class QMTools {
public:
    /// The dotted object identifier of a hash algorithm named "SHA1", "SHA256", "SHA384" or "SHA512" (exact,
    /// case-sensitive). The text is static. Throws std::runtime_error("Unsupported hash algorithm") for other
    /// names.
    static const char* GetHashOid(std::string hashAlgo);
};
