#pragma once

#include "Attributes.h"
#include "Catalogue.h"
#include "GivenObjects.h"
#include "Logins.h"

#include <p11-kit/pkcs11.h>

#include <optional>
#include <span>
#include <vector>

namespace tokendriver {

/// A session that the host was given, on all tokens at once. It outlives the module's own sessions: when a
/// module answers that session, device or token is gone, the token is looked for, and when it is back the
/// call is carried on. While it is not back, every call on its objects answers what the module answered when
/// it went.
///
/// The calls are PKCS#11's of the same name, with its answers; they throw Pkcs11Error where they do not
/// return CK_RV.
class Session {
public:
    /// All of these are the driver's, and outlive the session.
    Session(Catalogue& catalogue, GivenObjects& objects, Logins& logins)
        : catalogue_(catalogue), objects_(objects), logins_(logins) {}

    CK_RV Login(CK_USER_TYPE user, std::span<CK_UTF8CHAR> pin);
    CK_RV GetAttributeValue(CK_OBJECT_HANDLE object, CK_ATTRIBUTE* wanted, CK_ULONG count);

    /// Searches; what is found is handed out by FindObjects. A search left unfinished is closed before.
    CK_RV FindObjectsInit(const SearchTemplate& wanted);
    CK_RV FindObjects(std::span<CK_OBJECT_HANDLE> found, CK_ULONG& count);
    CK_RV FindObjectsFinal();

    CK_RV SignInit(const CK_MECHANISM& mechanism, CK_OBJECT_HANDLE key);
    CK_RV Sign(std::span<CK_BYTE> data, CK_BYTE* signature, CK_ULONG& length);
    CK_RV SignFinal(CK_BYTE* signature, CK_ULONG& length);

private:
    /// What a search found, of which `given` objects are with the host.
    struct Search {
        std::vector<CK_OBJECT_HANDLE> found;
        std::size_t given = 0;
    };

    /// A signature under way, begun in the token's session number `begunIn`.
    struct Signing {
        CK_MECHANISM_TYPE mechanism; ///< as the host asked
        GivenObject* key;
        bool hashedHere; ///< the module signs a block made here, with CKM_RSA_PKCS
        unsigned begunIn = 0;
    };

    std::vector<CK_OBJECT_HANDLE> FindCertificates(const SearchTemplate& wanted,
                                                   const ListedCertificate* named);
    std::vector<CK_OBJECT_HANDLE> FindKeys(const SearchTemplate& wanted, const ListedCertificate* named);
    std::vector<CK_OBJECT_HANDLE> FindAll(SearchTemplate wanted);
    CK_OBJECT_HANDLE GiveOut(const ListedCertificate& listed, CK_OBJECT_HANDLE inModule,
                             CK_OBJECT_CLASS objectClass);
    CK_OBJECT_HANDLE GiveOutUnseen(const ListedCertificate& listed);

    bool IsJustFound(const GivenObject& object, std::span<const CK_ATTRIBUTE> wanted) const;
    static CK_RV AnswerFromReading(const GivenObject& object, std::span<CK_ATTRIBUTE> wanted);

    CK_RV BeginSigning();
    CK_RV ModuleSignInit();
    CK_RV AuthenticateForKey();
    CK_RV Verify(std::span<const CK_BYTE> data, std::span<CK_BYTE> buffer, CK_ULONG length) const;

    Catalogue& catalogue_;
    GivenObjects& objects_;
    Logins& logins_;
    std::optional<Search> search_;
    std::optional<Signing> signing_;
};

} // namespace tokendriver
