#pragma once

#include <p11-kit/pkcs11.h>

#include <string>
#include <vector>

/// A PKCS#11 module, used without ceremony: its first token, one session. Every call throws
/// std::runtime_error when the module refuses.
class ReferenceToken {
public:
    /// Loads the module, initialises it and opens a read/write session on its first slot with a token.
    explicit ReferenceToken(const char* modulePath);

    void Login(CK_USER_TYPE user, const std::string& pin);

    /// The RSA key with this CKA_ID, searched anew, signs the data with CKM_SHA256_RSA_PKCS.
    std::string FindKeyAndSign(std::string id, std::string data);

    /// The DER of each X.509 certificate; its CKA_ID is read too.
    std::vector<std::string> Certificates();

    void Create(std::vector<CK_ATTRIBUTE> attributes);

private:
    template <class Function, class... Arguments>
    void Call(const char* name, Function function, Arguments... arguments);

    /// Searches, and calls `each` with every object found, until it says no.
    template <class Each>
    void Find(std::vector<CK_ATTRIBUTE> search, Each&& each);

    template <class Function>
    Function Resolve(const char* name);

    void* handle_;
    CK_SESSION_HANDLE session_ = 0;
    CK_C_Login login_;
    CK_C_FindObjectsInit findObjectsInit_;
    CK_C_FindObjects findObjects_;
    CK_C_FindObjectsFinal findObjectsFinal_;
    CK_C_GetAttributeValue getAttributeValue_;
    CK_C_SignInit signInit_;
    CK_C_Sign sign_;
};
