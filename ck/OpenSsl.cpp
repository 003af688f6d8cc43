#include "OpenSsl.h"

#include <openssl/err.h>
#include <openssl/objects.h>

OpenSslErrors::OpenSslErrors() { ERR_clear_error(); }

OpenSslErrors::~OpenSslErrors() { ERR_clear_error(); }

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
    const int size = OBJ_obj2txt(nullptr, 0, object, 1);
    if (size <= 0)
        return {};
    std::string text(static_cast<std::size_t>(size) + 1, '\0'); // with the terminator
    OBJ_obj2txt(text.data(), static_cast<int>(text.size()), object, 1);
    text.pop_back();
    return text;
}
