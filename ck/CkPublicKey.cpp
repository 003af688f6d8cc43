#include "CkPublicKey.h"

#include "TextEncoding.h"

#include <utility>

CkPublicKey::CkPublicKey(std::string spki, std::string pkcs1)
    : spki_(std::move(spki)), pkcs1_(std::move(pkcs1)) {}

std::string CkPublicKey::getEncoded(bool preferPkcs1, const char* encoding) const {
    return EncodeText(preferPkcs1 && !pkcs1_.empty() ? pkcs1_ : spki_, encoding);
}
