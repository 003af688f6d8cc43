#include "AsnNode.h"
#include "OpenSsl.h"

#include <openssl/objects.h>

namespace {

/// The longest object identifiers in use hold a UUID, in some forty digits. The conversions are quadratic in
/// the size of an arc.
constexpr std::size_t kMaxOidText = 1000;
constexpr std::size_t kMaxOidContent = 256;

} // namespace

std::string OidContent(std::string_view dotted) {
    // libcrypto takes blanks for dots, and leaves out what is missing between them.
    if (dotted.size() > kMaxOidText || dotted.find_first_not_of("0123456789.") != std::string_view::npos ||
        dotted.find("..") != std::string_view::npos || dotted.ends_with('.'))
        return {};
    const OpenSslErrors errors;
    const OpenSslPtr<ASN1_OBJECT> object(OBJ_txt2obj(std::string(dotted).c_str(), 1));
    if (!object)
        return {};
    return {reinterpret_cast<const char*>(OBJ_get0_data(object.get())), OBJ_length(object.get())};
}

std::string OidText(std::string_view content) {
    if (content.empty() || content.size() > kMaxOidContent)
        return {};
    AsnNode node{AsnClass::Universal, kAsnOid, false, std::string(content), {}};
    const std::string der = AsnToDer(node);
    const auto* next = reinterpret_cast<const unsigned char*>(der.data());
    const OpenSslErrors errors;
    const OpenSslPtr<ASN1_OBJECT> object(d2i_ASN1_OBJECT(nullptr, &next, static_cast<long>(der.size())));
    if (!object)
        return {};
    std::string dotted = DottedOid(object.get());
    return OidContent(dotted) == content ? dotted : std::string();
}
