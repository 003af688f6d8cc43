#include "QMTools.h"

#include <stdexcept>

const char* QMTools::GetHashOid(std::string hashAlgo) {
    if (hashAlgo == "SHA1")
        return "1.3.14.3.2.26";
    if (hashAlgo == "SHA256")
        return "2.16.840.1.101.3.4.2.1";
    if (hashAlgo == "SHA384")
        return "2.16.840.1.101.3.4.2.2";
    if (hashAlgo == "SHA512")
        return "2.16.840.1.101.3.4.2.3";
    throw std::runtime_error("Unsupported hash algorithm");
}
