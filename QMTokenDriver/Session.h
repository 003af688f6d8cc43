#pragma once

#include "Attributes.h"
#include "Token.h"

#include <p11-kit/pkcs11.h>

#include <functional>
#include <memory>
#include <optional>
#include <span>

namespace tokendriver {

/// A session that the host was given, on one token. It outlives the module's own session: when the module
/// answers that session, device or token is gone, the token is looked for, and when it is back the call is
/// carried on in a new session of the module. While it is not back, every call answers what the module
/// answered when it went.
///
/// The calls are PKCS#11's of the same name, with its answers; they throw Pkcs11Error where they do not
/// return CK_RV.
class Session {
public:
    /// Finds a token that was lost, where it now is, and answers it as it is seen there; nothing when it is
    /// nowhere.
    using FindToken = std::function<std::optional<SeenToken>(const SeenToken& lost)>;

    /// Opens the module's session. Read/write refused by a write-protected token: a read-only one. `flags`
    /// are C_OpenSession's. Throws Pkcs11Error. `token` must outlive the session.
    Session(Token& token, CK_FLAGS flags, FindToken findToken);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    CK_RV Login(CK_USER_TYPE user, std::span<CK_UTF8CHAR> pin);
    CK_RV GetAttributeValue(CK_OBJECT_HANDLE object, CK_ATTRIBUTE* wanted, CK_ULONG count);

    /// Begins a search; one left unfinished is closed before.
    CK_RV FindObjectsInit(SearchTemplate wanted);
    CK_RV FindObjects(std::span<CK_OBJECT_HANDLE> found, CK_ULONG& count);
    CK_RV FindObjectsFinal();

    CK_RV SignInit(const CK_MECHANISM& mechanism, CK_OBJECT_HANDLE key);
    CK_RV Sign(std::span<CK_BYTE> data, CK_BYTE* signature, CK_ULONG& length);
    CK_RV SignFinal(CK_BYTE* signature, CK_ULONG& length);

private:
    /// A search under way, begun in the module's session number `begunIn`. `given` objects of it are with the
    /// host.
    struct Search {
        SearchTemplate wanted;
        unsigned begunIn = 0; ///< 0: in none
        std::size_t given = 0;
    };

    /// A signature under way, begun in the module's session number `begunIn`.
    struct Signing {
        CK_MECHANISM_TYPE mechanism; ///< as the host asked
        Bytes parameter;
        CK_OBJECT_HANDLE key; ///< the driver's
        bool hashedHere;      ///< the module signs a DigestInfo made here, with CKM_RSA_PKCS
        unsigned begunIn = 0;
    };

    /// Runs `call`, which talks to the module; when the token turns out to be gone and is back, once more.
    template <class Call>
    CK_RV Carry(Call call);

    CK_RV Open();
    CK_RV Reconnect();
    CK_RV Renew();

    CK_RV ContinueSearch();
    CK_RV BeginSigning();
    CK_RV ModuleSignInit(CK_OBJECT_HANDLE key);
    CK_RV AuthenticateFor(CK_OBJECT_HANDLE key);
    template <class Call>
    CK_RV FinishSigning(CK_BYTE* signature, CK_ULONG& length, Call call);

    CK_FUNCTION_LIST& Module() const { return token_.Module(); }

    Token& token_;
    CK_FLAGS flags_;
    FindToken findToken_;
    CK_SESSION_HANDLE inModule_ = 0;
    unsigned number_ = 0;     ///< counts the module's sessions that this one has had
    CK_RV goneWith_ = CKR_OK; ///< the module's answer when the token went; CKR_OK while the session is open
    std::optional<Search> search_;
    std::optional<Signing> signing_;
};

} // namespace tokendriver
