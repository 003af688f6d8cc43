#include "OpenSsl.h"

#include <openssl/err.h>
#include <openssl/objects.h>

namespace {

/// The object identifiers of algorithms and attributes have some thirty characters.
constexpr std::size_t kUsualOidText = 64;

/// Clearing goes through the whole queue, which costs more than many of the calls that may fill it.
void EmptyQueue() {
    if (ERR_peek_error() != 0)
        ERR_clear_error();
}

} // namespace

OpenSslErrors::OpenSslErrors() { EmptyQueue(); }

OpenSslErrors::~OpenSslErrors() { EmptyQueue(); }

std::string OpenSslErrors::Describe(const char* call) const {
    // The first error is the cause, those behind it tell who passed it on.
    const char* data = nullptr;
    int flags = 0;
    const unsigned long error = ERR_peek_error_all(nullptr, nullptr, nullptr, &data, &flags);
    const char* reason = ERR_reason_error_string(error);
    std::string text = std::string(call) + ": " + (reason ? reason : "error " + std::to_string(error));
    if ((flags & ERR_TXT_STRING) && *data)
        text += std::string(" (") + data + ")";
    return text;
}

std::string DottedOid(const ASN1_OBJECT* object) {
    std::string text(kUsualOidText, '\0');
    const int size = OBJ_obj2txt(text.data(), static_cast<int>(text.size()), object, 1);
    if (size <= 0)
        return {};
    const auto length = static_cast<std::size_t>(size);
    const bool isWhole = length < text.size(); // the terminator wants its place
    text.resize(length + 1);
    if (!isWhole)
        OBJ_obj2txt(text.data(), static_cast<int>(text.size()), object, 1);
    text.pop_back();
    return text;
}
