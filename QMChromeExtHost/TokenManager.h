#pragma once

#include "QMHostShared.h"
#include "QMX509Decoder.h"
#include "ck/CkJsonArray.h"

#include <p11-kit/pkcs11.h>

#include <string>
#include <vector>

enum TokenStates : int {
    TOKEN_NOT_FOUND = 1,    ///< no slot with a token present was found
    TOKEN_PLUGGED = 2,      ///< at least one slot with a token present was found
    TOKEN_SESSION_OPEN = 3, ///< a read/write session is open on the first such slot
    TOKEN_LOGEDIN = 4       ///< the user PIN was accepted on that session
};

/// What a search for a private key found. A false `found` with an empty message means that the reason is in
/// the log.
struct TokenKey {
    bool found = false;
    std::string message;
    CK_OBJECT_HANDLE hPrivateKey = 0;
};

/// The host's only door to the token: one PKCS#11 module, one session, one login, for the life of the
/// process.
///
/// Key identifiers travel as text: the bytes of a CKA_ID up to the first zero byte, not encoded. For the GUI
/// thread only.
class TokenManager {
public:
    TokenManager();
    /// Erases the PIN. The module stays loaded and its session open until the process ends.
    ~TokenManager();
    TokenManager(const TokenManager&) = delete;
    TokenManager& operator=(const TokenManager&) = delete;

    static TokenStates TokenState;

    CK_SESSION_HANDLE hTokenSession = 0;
    /// One record per certificate on the token, chain certificates included; see BuildTokenCertList.
    CkJsonArray TokenCertList;
    /// The PIN of the last successful login, empty before. In locked memory.
    std::string TokenUserPin;
    /// For each card that BuildTokenCertList has returned, how the window shows it.
    std::vector<ShownCard> ShownCards;

    /// Loads the module at TokenDriverFullPath and resolves its entry points; one that is missing is noticed
    /// when it is first called. True with a report, or false with a text for the user.
    OperationResult LoadTokenDrivers();

    /// Initialises the module and opens a read/write session on the first slot that holds a token. True, or
    /// false with the reason.
    OperationResult TokenOpenSession();

    /// Logs the user in, on a session that it opens when none is. Asks for the PIN in a modal dialog when
    /// `strUserPin` is empty. True, or false with the reason.
    OperationResult TokenLogin(std::string strUserPin);

    /// Reads every X.509 certificate of the token anew: the records into TokenCertList ("ChainCert" and
    /// "CKA_ID" added), the CKA_ID of each selectable one into SelectCertDisplayListCKA_ID. Returns the HTML
    /// cards of the selectable ones in the same order. Throws std::runtime_error when the module fails; what
    /// was read so far stays.
    std::vector<std::string> BuildTokenCertList();

    /// The RSA private key with the CKA_ID text `cka_id`. Logs in first when nobody is.
    TokenKey GetTokenPvtKey(const char* cka_id);

    /// Has the token hash and sign the zero-terminated `ContentToSign`. `hashAlgo` is "SHA384", "SHA512", or
    /// anything else for SHA-256. True with the Base64 of the signature, or false with the reason.
    OperationResult TokenSignData(CK_OBJECT_HANDLE hPriKey, const unsigned char* ContentToSign,
                                  std::string hashAlgo);

    /// Has the token sign the zero-terminated block `hashToSign` as it is, with PKCS#1 v1.5 padding. Returns
    /// the signature, empty on failure (the reason is in the log).
    std::vector<unsigned char> TokenSignHash(CK_OBJECT_HANDLE hPriKey, const unsigned char* hashToSign);

private:
    /// Logs the result of a PKCS#11 call. Throws std::runtime_error with that line for anything but CKR_OK.
    void CheckResult(CK_RV rvRet, const char* PKCSFunction);

    /// C_SignInit and C_Sign in one; the signature that the token gave. Throws as CheckResult.
    std::vector<unsigned char> Sign(CK_OBJECT_HANDLE hPriKey, CK_MECHANISM_TYPE mechanism,
                                    const unsigned char* text);

    /// Reads the certificate object `hCKObj` into the three lists. Throws as CheckResult.
    void AppendCertificate(CK_OBJECT_HANDLE hCKObj, std::vector<std::string>& CertificateHtmlList);

    bool bInited = false; ///< kept on purpose: set once, read by nobody
    void* handle = nullptr;
    CK_C_Initialize F_Initialize = nullptr;
    CK_C_Finalize F_Finalize = nullptr;
    CK_C_GetSlotList F_GetSlotList = nullptr;
    CK_C_OpenSession F_OpenSession = nullptr;
    CK_C_Login F_Login = nullptr;
    CK_C_FindObjectsInit F_FindObjectsInit = nullptr;
    CK_C_FindObjects F_FindObjects = nullptr;
    CK_C_FindObjectsFinal F_FindObjectsFinal = nullptr;
    CK_C_GetAttributeValue F_GetAttributeValue = nullptr;
    CK_C_SignInit F_SignInit = nullptr;
    CK_C_Sign F_Sign = nullptr;
    CK_C_SignFinal F_SignFinal = nullptr; ///< kept on purpose: resolved, never called
    CK_SLOT_ID_PTR pSlotList = nullptr;   ///< kept on purpose: never set, so that a failure frees nothing
};
