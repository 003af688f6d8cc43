#include "FakeToken.h"

/// A second token, with a key of its own, makes its signatures.
struct SignsWithAnotherKey : FakeToken {
    CK_RV SignInit(CK_SESSION_HANDLE session, CK_MECHANISM_TYPE mechanism, CK_OBJECT_HANDLE key) override {
        CK_SESSION_HANDLE there = 0;
        other.OpenSession(0, there);
        other.loggedIn = true;
        other.SignInit(there, mechanism, key);
        otherSession = there;
        return FakeToken::SignInit(session, mechanism, key);
    }
    CK_RV Sign(CK_SESSION_HANDLE session, std::span<CK_BYTE> data, CK_BYTE* signature,
               CK_ULONG& length) override {
        const CK_RV answer = FakeToken::Sign(session, data, signature, length);
        return answer == CKR_OK && signature != nullptr ? other.Sign(otherSession, data, signature, length)
                                                        : answer;
    }
    FakeToken other;
    CK_SESSION_HANDLE otherSession = 0;
};

FAKE_TOKEN(SignsWithAnotherKey)
