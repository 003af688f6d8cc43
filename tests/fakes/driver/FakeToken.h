#pragma once

#include "FakeTokenState.h"

#include <p11-kit/pkcs11.h>

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// A token that does everything right: one RSA 2048 key with its certificate, standard comparisons, real
/// signatures by libcrypto. Each module of this folder overrides the one thing that its name says.
class FakeToken : public FakeTokenState {
public:
    using Bytes = std::vector<CK_BYTE>;

    /// An object by its attributes.
    using Object = std::map<CK_ATTRIBUTE_TYPE, Bytes>;

    FakeToken();
    virtual ~FakeToken();
    FakeToken(const FakeToken&) = delete;
    FakeToken& operator=(const FakeToken&) = delete;

    // What the faults override.
    virtual CK_RV Initialize() { return CKR_OK; }
    virtual CK_RV Finalize() { return CKR_OK; }
    virtual std::vector<CK_SLOT_ID> Slots() {
        return present ? std::vector<CK_SLOT_ID>{7} : std::vector<CK_SLOT_ID>{};
    }
    virtual CK_FLAGS SlotFlags() { return CKF_TOKEN_PRESENT; }
    virtual CK_FLAGS TokenFlags() {
        return CKF_TOKEN_INITIALIZED | CKF_LOGIN_REQUIRED | CKF_USER_PIN_INITIALIZED;
    }
    virtual CK_RV GetTokenInfo(CK_TOKEN_INFO& info);
    virtual std::vector<CK_MECHANISM_TYPE> Mechanisms();
    virtual std::vector<Object> MakeObjects();
    virtual CK_RV OpenSession(CK_FLAGS flags, CK_SESSION_HANDLE& session);
    virtual CK_RV Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, std::string_view typed);
    virtual CK_RV GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                                    std::span<CK_ATTRIBUTE> wanted);
    virtual CK_RV FindObjects(CK_SESSION_HANDLE session, std::span<CK_OBJECT_HANDLE> found, CK_ULONG& count);
    virtual CK_RV SignInit(CK_SESSION_HANDLE session, CK_MECHANISM_TYPE mechanism, CK_OBJECT_HANDLE key);
    virtual CK_RV Sign(CK_SESSION_HANDLE session, std::span<CK_BYTE> data, CK_BYTE* signature,
                       CK_ULONG& length);

    CK_RV CloseSession(CK_SESSION_HANDLE session);
    CK_RV FindObjectsInit(CK_SESSION_HANDLE session, std::span<const CK_ATTRIBUTE> wanted);
    CK_RV FindObjectsFinal(CK_SESSION_HANDLE session);

protected:
    static Bytes Number(CK_ULONG value);
    static Bytes Text(std::string_view text) { return {text.begin(), text.end()}; }

    /// What a certificate says; the times are seconds from now.
    struct Contents {
        const char* name = "Fake User";
        const char* keyUsage = "digitalSignature"; ///< null: no such extension
        bool isCa = false;
        bool isRsa = true; ///< false: over an EC key that is nowhere
        long notBefore = -3600;
        long notAfter = 30L * 24 * 3600;
    };

    Object Certificate(const Bytes& id, const Contents& contents);
    Object Certificate(const Bytes& id) { return Certificate(id, Contents{}); }
    Object PrivateKey(const Bytes& id);
    std::vector<Object> KeyPair(const Bytes& id) { return {Certificate(id), PrivateKey(id)}; }

private:
    struct SigningState {
        CK_MECHANISM_TYPE mechanism;
        bool authenticated;
    };
    struct SessionState {
        unsigned pulls; ///< before it was opened
        std::optional<std::vector<CK_OBJECT_HANDLE>> search;
        std::optional<SigningState> signing;
    };
    struct Key;

    /// The session; null when there is none, also when the token was pulled since.
    SessionState* Find(CK_SESSION_HANDLE session);

    /// Handles are others after every pull.
    CK_OBJECT_HANDLE FirstObject() const { return 1000 + 100'000 * CK_OBJECT_HANDLE{pulls}; }
    Object* FindObject(CK_OBJECT_HANDLE handle);
    bool IsVisible(const Object& object) const;
    Bytes SignBytes(CK_MECHANISM_TYPE mechanism, std::span<const CK_BYTE> data);
    Key& TheKey();
    std::vector<Object>& Objects();

    std::unique_ptr<Key> key_; ///< made at the first use
    std::optional<std::vector<Object>> objects_;
    std::map<CK_SESSION_HANDLE, SessionState> sessions_;
    CK_SESSION_HANDLE lastSession_ = 100;
};

/// The module's token, as it is at first. Each module defines this with FAKE_TOKEN(class).
std::unique_ptr<FakeToken> MakeFakeToken();

/// Exported by each module, for tests: puts a new token in the place of the one there is.
extern "C" FakeTokenState* NewFakeToken();

#define FAKE_TOKEN(Class)                                                                                    \
    std::unique_ptr<FakeToken> MakeFakeToken() { return std::make_unique<Class>(); }
