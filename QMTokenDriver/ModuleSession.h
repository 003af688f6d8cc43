#pragma once

#include "Attributes.h"

#include <p11-kit/pkcs11.h>

#include <initializer_list>
#include <optional>
#include <span>
#include <vector>

namespace tokendriver {

/// More objects than any token has; a module whose search does not end there is broken.
constexpr std::size_t kMaxObjectsLookedAt = 100'000;

/// A module's session on a token, closed at the end.
class ModuleSession {
public:
    /// Opens it. Read/write refused by a write-protected token: a read-only one.
    ModuleSession(CK_FUNCTION_LIST& module, CK_SLOT_ID slot, CK_FLAGS flags);
    ~ModuleSession();
    ModuleSession(const ModuleSession&) = delete;
    ModuleSession& operator=(const ModuleSession&) = delete;

    /// What opening it answered. Unless CKR_OK, all else fails with this.
    CK_RV Opened() const { return opened_; }

    CK_SESSION_HANDLE Handle() const { return session_; }
    CK_FUNCTION_LIST& Module() const { return module_; }

    /// The module's handles of the objects that match. Throws Pkcs11Error; the search is closed in any case.
    std::vector<CK_OBJECT_HANDLE> Find(std::span<CK_ATTRIBUTE> wanted) const;

    /// The values of some attributes, in this order; nothing for one that the object has not, that may not be
    /// read, or whose length cannot be. Throws Pkcs11Error when the token is gone.
    std::vector<std::optional<Bytes>> Values(CK_OBJECT_HANDLE object,
                                             std::initializer_list<CK_ATTRIBUTE_TYPE> types) const;

    /// Its X.509 certificate objects. Throws Pkcs11Error.
    std::vector<CK_OBJECT_HANDLE> Certificates() const;

    CK_RV Login(CK_USER_TYPE user, std::span<CK_UTF8CHAR> pin) const;

private:
    std::optional<Bytes> LongValue(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) const;

    CK_FUNCTION_LIST& module_;
    CK_SESSION_HANDLE session_ = 0;
    CK_RV opened_;
};

} // namespace tokendriver
