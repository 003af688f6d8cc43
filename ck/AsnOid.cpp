#include "AsnNode.h"
#include "OpenSsl.h"

#include <openssl/objects.h>

#include <algorithm>

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
    // An octet holds seven bits of an arc: no content is longer than its text.
    std::string content(dotted.size(), '\0');
    const int size =
        a2d_ASN1_OBJECT(reinterpret_cast<unsigned char*>(content.data()), static_cast<int>(content.size()),
                        dotted.data(), static_cast<int>(dotted.size()));
    content.resize(static_cast<std::size_t>(std::max(size, 0)));
    return content;
}

std::string OidText(std::string_view content) {
    if (content.empty() || content.size() > kMaxOidContent)
        return {};
    const OpenSslErrors errors;
    std::string octets(content);
    const OpenSslPtr<ASN1_OBJECT> object(
        ASN1_OBJECT_create(0, reinterpret_cast<unsigned char*>(octets.data()),
                           static_cast<int>(octets.size()), nullptr, nullptr));
    if (!object)
        return {};
    std::string dotted = DottedOid(object.get());
    return OidContent(dotted) == content ? dotted : std::string();
}
