#pragma once

#include "Attributes.h"

#include <p11-kit/pkcs11.h>

#include <optional>
#include <span>
#include <vector>

namespace tokendriver {

/// The longest certificate list that is looked through; the host reads one by one and shows them all in a
/// list.
constexpr std::size_t kMaxObjectsLookedAt = 10'000;

/// A read-only session of the driver's own on a token, to look at its objects; closed at the end.
class TokenReader {
public:
    TokenReader(CK_FUNCTION_LIST& module, CK_SLOT_ID slot);
    ~TokenReader();
    TokenReader(const TokenReader&) = delete;
    TokenReader& operator=(const TokenReader&) = delete;

    /// What opening the session answered. Unless CKR_OK, nothing is found.
    CK_RV Opened() const { return opened_; }

    /// The module's handles of the objects that match, kMaxObjectsLookedAt at most; none when the module
    /// fails.
    std::vector<CK_OBJECT_HANDLE> Find(std::span<CK_ATTRIBUTE> wanted);

    /// The value of an attribute; nothing when the object has none or the module fails.
    std::optional<Bytes> Value(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type);

    /// Its X.509 certificate objects.
    std::vector<CK_OBJECT_HANDLE> Certificates();

    /// The private keys with this raw id that can be seen: most tokens show them after login only.
    std::vector<CK_OBJECT_HANDLE> PrivateKeys(Bytes id);

    /// CKU_USER, with a null PIN for a PIN pad.
    CK_RV Login(CK_UTF8CHAR* pin, CK_ULONG length);

private:
    CK_FUNCTION_LIST& module_;
    CK_SESSION_HANDLE session_ = 0;
    CK_RV opened_;
};

} // namespace tokendriver
