#pragma once

#include "Script.h"

#include <deque>
#include <string>
#include <string_view>
#include <utility>

/// The token behind the entry points: state and the work of each call, faults aside. The results are those
/// that PKCS#11 prescribes. One slot of many is as good as another: sessions and logins are shared.
class FakeToken {
public:
    explicit FakeToken(Script script) : script_(std::move(script)) {}

    Script& TheScript() { return script_; }

    CK_RV Initialize();
    CK_RV Finalize();
    CK_RV GetSlotList(CK_SLOT_ID* list, CK_ULONG* count) const;
    CK_RV OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, CK_SESSION_HANDLE* session);
    CK_RV Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, std::string_view pin);
    CK_RV FindObjectsInit(CK_SESSION_HANDLE session, const CK_ATTRIBUTE* attributes, CK_ULONG count);
    CK_RV FindObjects(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE* objects, CK_ULONG max, CK_ULONG* count);
    CK_RV FindObjectsFinal(CK_SESSION_HANDLE session);
    CK_RV GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE* attributes,
                            CK_ULONG count) const;
    CK_RV SignInit(CK_SESSION_HANDLE session, const CK_MECHANISM& mechanism, CK_OBJECT_HANDLE key);
    CK_RV Sign(CK_SESSION_HANDLE session, const std::string& data, CK_BYTE* signature, CK_ULONG* length);

private:
    bool Knows(CK_SESSION_HANDLE session) const { return session >= kFirstSession && session < nextSession_; }
    const TokenObject* Find(CK_OBJECT_HANDLE handle) const;
    bool IsPin(std::string_view given) const;
    bool Matches(const TokenObject& object, const CK_ATTRIBUTE& wanted) const;

    static constexpr CK_SESSION_HANDLE kFirstSession = 4711;
    static constexpr CK_OBJECT_HANDLE kFirstObject = 101;

    Script script_;
    bool initialised_ = false;
    bool loggedIn_ = false;
    unsigned wrongPins_ = 0;
    CK_SESSION_HANDLE nextSession_ = kFirstSession;
    bool searching_ = false;
    std::deque<CK_OBJECT_HANDLE> found_;
    CK_MECHANISM_TYPE signMechanism_ = 0;
    const TokenObject* signKey_ = nullptr;
};
