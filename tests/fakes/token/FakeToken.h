#pragma once

#include "FakeTokenState.h"

#include <openssl/types.h>
#include <p11-kit/pkcs11.h>

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

/// A call of one of the functions that the host calls, as it came in.
struct Call {
    using Value = std::variant<bool, CK_ULONG, std::string_view, std::span<const CK_BYTE>,
                               std::span<const CK_ATTRIBUTE>>;

    const char* name;
    std::vector<std::pair<const char*, Value>> in;
    /// The numbers that the call reports; null where the caller wants none.
    std::vector<std::pair<const char*, CK_ULONG*>> out = {};
};

/// A token that does everything right: one RSA 2048 key with its certificate, standard comparisons, real
/// signatures by libcrypto. EntryPoints.cpp makes a PKCS#11 module of it. Each fake overrides what it does
/// otherwise.
class FakeToken : public FakeTokenState {
public:
    using Bytes = std::vector<CK_BYTE>;

    struct Object {
        std::map<CK_ATTRIBUTE_TYPE, Bytes> attributes;
        EVP_PKEY* key = nullptr; ///< what a private key signs with
    };
    struct Signing {
        CK_MECHANISM_TYPE mechanism;
        EVP_PKEY* key;
        bool authenticated;
    };
    struct Session {
        unsigned pulls; ///< before it was opened
        std::optional<std::deque<CK_OBJECT_HANDLE>> search = {};
        std::optional<Signing> signing = {};
    };

    FakeToken() = default;
    virtual ~FakeToken() = default;
    FakeToken(const FakeToken&) = delete;
    FakeToken& operator=(const FakeToken&) = delete;

    /// Stands around each call of the host; `work` does what is right.
    virtual CK_RV Serve(const Call&, const std::function<CK_RV()>& work) { return work(); }

    // What is on the token.
    virtual std::vector<CK_SLOT_ID> Slots() {
        return present ? std::vector<CK_SLOT_ID>{7} : std::vector<CK_SLOT_ID>{};
    }
    virtual CK_FLAGS SlotFlags() { return CKF_TOKEN_PRESENT; }
    virtual CK_FLAGS TokenFlags() {
        return CKF_TOKEN_INITIALIZED | CKF_LOGIN_REQUIRED | CKF_USER_PIN_INITIALIZED;
    }
    virtual std::vector<CK_MECHANISM_TYPE> Mechanisms() {
        return {CKM_RSA_PKCS, CKM_SHA256_RSA_PKCS, CKM_SHA384_RSA_PKCS, CKM_SHA512_RSA_PKCS};
    }
    virtual std::vector<Object> MakeObjects() { return KeyPair({0xab, 0xcd, 0x01}); }
    virtual bool IsPin(std::string_view typed) { return typed == pin; }

    // What its functions do.
    virtual CK_RV Initialize();
    virtual CK_RV Finalize();
    virtual CK_RV GetTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO& info);
    virtual CK_RV OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, CK_SESSION_HANDLE& session);
    virtual CK_RV CloseSession(CK_SESSION_HANDLE session);
    virtual CK_RV Login(Session& session, CK_USER_TYPE user, std::string_view typed);
    virtual CK_RV FindObjectsInit(Session& session, std::span<const CK_ATTRIBUTE> wanted);
    virtual CK_RV FindObjects(Session& session, std::span<CK_OBJECT_HANDLE> found, CK_ULONG& count);
    virtual CK_RV FindObjectsFinal(Session& session);
    virtual CK_RV GetAttributeValue(Session& session, CK_OBJECT_HANDLE object,
                                    std::span<CK_ATTRIBUTE> wanted);
    virtual CK_RV SignInit(Session& session, CK_MECHANISM_TYPE mechanism, CK_OBJECT_HANDLE key);
    virtual CK_RV Sign(Session& session, std::span<const CK_BYTE> data, CK_BYTE* signature, CK_ULONG& length);

    /// What `work` answers, or why there is no such session.
    CK_RV InSession(CK_SESSION_HANDLE session, const std::function<CK_RV(Session&)>& work);

protected:
    /// What a certificate says; the times are seconds from now.
    struct Contents {
        const char* name = "Fake User";
        const char* keyUsage = "digitalSignature"; ///< null: no such extension
        bool isCa = false;
        bool isRsa = true; ///< false: over an EC key that is nowhere
        long notBefore = -3600;
        long notAfter = 30L * 24 * 3600;
    };

    static Bytes Text(std::string_view text) { return {text.begin(), text.end()}; }
    static Object CertificateOf(const Bytes& id, const Bytes& der);
    static Object Certificate(const Bytes& id, const Contents& contents);
    static Object PrivateKey(const Bytes& id, EVP_PKEY* key);

    // Of the key that is the same throughout a module.
    static Object Certificate(const Bytes& id) { return Certificate(id, Contents{}); }
    static Object PrivateKey(const Bytes& id);
    static std::vector<Object> KeyPair(const Bytes& id) { return {Certificate(id), PrivateKey(id)}; }

    /// False: as forgiving as the modules of some token makers, where a number may come in four bytes and a
    /// CKA_ID may end in one zero byte more.
    bool strict = true;
    bool initialised = false;

private:
    /// Handles are others after every pull.
    CK_OBJECT_HANDLE FirstObject() const { return 101 + 100'000 * CK_OBJECT_HANDLE{pulls}; }
    Object* FindObject(CK_OBJECT_HANDLE handle);
    bool Matches(const Object& object, const CK_ATTRIBUTE& wanted) const;
    bool IsSlot(CK_SLOT_ID slot);
    std::vector<Object>& Objects();

    std::optional<std::vector<Object>> objects_, othersObjects_; ///< made at the first use
    std::map<CK_SESSION_HANDLE, Session> sessions_;
    CK_SESSION_HANDLE lastSession_ = 4710;
    unsigned wrongPins_ = 0;
};

/// The token of the module, made at the first use.
FakeToken& TheToken();

/// That token as it is at first. Each module defines this with FAKE_TOKEN(class).
std::unique_ptr<FakeToken> MakeFakeToken();

/// Exported by each module, for tests: puts a new token in the place of the one there is.
extern "C" FakeTokenState* NewFakeToken();

#define FAKE_TOKEN(Class)                                                                                    \
    std::unique_ptr<FakeToken> MakeFakeToken() { return std::make_unique<Class>(); }
