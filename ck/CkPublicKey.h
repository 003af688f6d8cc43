#pragma once

#include <string>

/// A public key taken out of a certificate (see CkCert::ExportPublicKey).
class CkPublicKey {
public:
    /// The key's DER as one line of text in `encoding` ("Base64"): with `preferPkcs1` and an RSA key the
    /// RSAPublicKey of PKCS#1 (RFC 8017 appendix A.1.1), else the SubjectPublicKeyInfo of X.509 (RFC 5280
    /// section 4.1).
    std::string getEncoded(bool preferPkcs1, const char* encoding) const;

private:
    friend class CkCert;
    CkPublicKey(std::string spki, std::string pkcs1);
    std::string spki_;
    std::string pkcs1_; // empty when the key is no RSA key
};
