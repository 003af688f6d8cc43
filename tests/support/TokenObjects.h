#pragma once

#include "OpenSsl.h"

#include <p11-kit/pkcs11.h>

#include <map>
#include <string>
#include <vector>

/// An object of a PKCS#11 token, by its attributes.
using TokenObject = std::map<CK_ATTRIBUTE_TYPE, std::string>;

/// The attribute value that this number is.
std::string NumberValue(CK_ULONG number);

/// A certificate that anybody may see.
TokenObject CertificateObject(const std::string& id, const std::string& der);

/// An RSA key that signs after a login.
TokenObject PrivateKeyObject(const std::string& id, const EVP_PKEY* key);

/// Pairs of type and value as PKCS#11 takes them; they point into `object`.
template <class Object>
std::vector<CK_ATTRIBUTE> TemplateOf(Object& object) {
    std::vector<CK_ATTRIBUTE> attributes;
    for (auto& [type, value] : object)
        attributes.push_back({type, value.data(), value.size()});
    return attributes;
}
