#pragma once

#include "ModuleSession.h"
#include "OpenSslPtr.h"

#include <p11-kit/pkcs11.h>

#include <ctime>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

/// Which certificates of a token the host is offered, and in what order. One rule, for the driver and for
/// quillmark-tokens.

namespace tokendriver {

/// Where a certificate stands in the list, the first wanted first. The host keeps chain certificates, and
/// shows none.
enum class Standing { Valid, NotYetValid, Expired, Chain, LeftOut };

/// What a certificate says of its use for signing.
struct Offer {
    Standing standing = Standing::LeftOut;
    std::vector<std::string> reasons; ///< why it is left out or not among the first; empty when valid
    std::time_t notAfter = 0;
    bool isBehind = false; ///< behind the others of the same standing

    /// Whether the user may choose it.
    bool IsOffered() const { return standing < Standing::Chain; }

    /// The reasons in one line.
    std::string ReasonsText() const;

    /// Leaves it out for this reason; an empty one changes nothing.
    void LeaveOut(const std::string& reason);

    /// Puts it behind the others of the same standing for this reason; an empty one changes nothing.
    void PutBehind(const std::string& reason);

    /// The order of the list: by standing, those put behind after the others, then the latest end first.
    bool ComesBefore(const Offer& other) const;
};

/// Why nobody can log in on a token with these flags of CK_TOKEN_INFO, so that none of its keys signs now;
/// empty when somebody can.
std::string PinObjection(CK_FLAGS tokenFlags);

/// One X.509 certificate object of a token.
class Certificate {
public:
    Certificate(Bytes id, Bytes der);

    const Bytes& Id() const { return id_; } ///< the raw CKA_ID
    const Bytes& Der() const { return der_; }

    /// Whether it is the same object: the same id and value.
    bool operator==(const Certificate& other) const {
        return this == &other || (id_ == other.id_ && der_ == other.der_);
    }

    /// Of its RSA key, without leading zero bytes; empty for other keys.
    const Bytes& Modulus() const { return modulus_; }

    /// Whether it is no certificate authority's, so that no two tokens of different people have it.
    bool IsUsers() const { return isUsers_; }

    /// What the certificate by itself tells; `now` decides on its validity.
    Offer Offered(std::time_t now) const;

    /// Whether `signature` is PKCS #1 v1.5 by its key over this block, as CKM_RSA_PKCS makes it.
    bool Verifies(std::span<const CK_BYTE> block, std::span<const CK_BYTE> signature) const;

private:
    Bytes id_, der_, modulus_;
    bool isReadable_ = false;
    bool isUsers_ = false;
    std::vector<std::string> objections_; ///< beside those that come with time
    Standing standing_ = Standing::Valid; ///< likewise
    std::time_t notBefore_ = 0, notAfter_ = 0;
    OpenSslPtr<EVP_PKEY_CTX> verification_; ///< null unless its key is RSA
};

/// The certificates on a token with the module's handles, in its order. One that cannot be read stands there
/// without a value. `known` ones are not parsed again. Throws Pkcs11Error.
struct FoundCertificate {
    CK_OBJECT_HANDLE object;
    std::shared_ptr<const Certificate> certificate;
};
std::vector<FoundCertificate> ReadCertificates(const ModuleSession& session,
                                               const std::vector<FoundCertificate>& known = {});

/// What is to be known of a private key.
struct PrivateKey {
    CK_OBJECT_HANDLE object;
    Bytes id;
    Bytes modulus;         ///< without leading zero bytes; empty where the token does not tell it
    std::string objection; ///< why it makes no RSA signatures; empty: it does
};

/// The private keys that can be seen: most tokens show them after login only. Throws Pkcs11Error.
std::vector<PrivateKey> ReadPrivateKeys(const ModuleSession& session);

/// Why none of these keys, seen by one who is logged in, signs for the certificate; empty when one does.
std::string KeyObjection(const std::vector<PrivateKey>& keys, const Certificate& certificate);

/// Of the private keys with the certificate's id, those that may be its own: where there are several, the one
/// with its modulus, or those that do not tell theirs. Throws Pkcs11Error when the token is gone.
std::vector<CK_OBJECT_HANDLE> KeysFor(const Certificate* certificate, std::vector<CK_OBJECT_HANDLE> keys,
                                      const ModuleSession& session);

} // namespace tokendriver
