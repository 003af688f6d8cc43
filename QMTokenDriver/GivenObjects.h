#pragma once

#include "Attributes.h"
#include "Offered.h"
#include "Token.h"

#include <p11-kit/pkcs11.h>

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <utility>

namespace tokendriver {

/// Objects given out; tokens hold a few dozen, soft tokens some thousands.
constexpr std::size_t kMaxObjectsGivenOut = 100'000;

/// An object that the host was given a handle of. What is known of it finds it again after its token was
/// away.
struct GivenObject {
    CK_OBJECT_HANDLE handle; ///< the driver's own
    Token* token;
    CK_OBJECT_HANDLE inModule;
    unsigned visit; ///< the token's visit (see Token) in which `inModule` is valid
    std::optional<CK_OBJECT_CLASS> objectClass;
    KnownId id;
    std::shared_ptr<const Certificate> certificate; ///< itself, or the one that the key was found by
    std::optional<bool> alwaysAuthenticate;         ///< CKA_ALWAYS_AUTHENTICATE, once it was asked for
};

/// The objects given out, of all tokens. Handles are the driver's own and hold for ever.
class GivenObjects {
public:
    /// The handle (never 0) of an object of the token's present visit. The same object has the same handle,
    /// unless what is known of it says that the module has given its handle to another. Throws Pkcs11Error
    /// CKR_DEVICE_MEMORY over the limit.
    CK_OBJECT_HANDLE GiveOut(Token& token, CK_OBJECT_HANDLE inModule,
                             const std::optional<CK_OBJECT_CLASS>& objectClass,
                             const std::optional<Bytes>& id);

    /// The object behind a handle given out; null for others. Valid for ever.
    GivenObject* Object(CK_OBJECT_HANDLE handle);

    /// The module's handle, valid in the token's present visit; after a new visit the object is looked for by
    /// class and id, and a certificate by its value. Throws Pkcs11Error CKR_OBJECT_HANDLE_INVALID unless
    /// exactly one is found, CKR_USER_NOT_LOGGED_IN when it may be hidden because the login was not renewed
    /// in this visit.
    CK_OBJECT_HANDLE HandleFor(GivenObject& object);

private:
    using Place = std::pair<const Token*, CK_OBJECT_HANDLE>;

    std::deque<GivenObject> objects_;            ///< the handle is the index + 1
    std::map<Place, CK_OBJECT_HANDLE> givenOut_; ///< the last that was given out, by the module's handle
};

} // namespace tokendriver
