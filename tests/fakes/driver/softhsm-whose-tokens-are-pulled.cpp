// SoftHSM, of whose tokens one may be pulled: the one whose label is in the file $QM_TOKEN_PULLED, as long as
// the file is there. What was open on it is no more when it comes back.

#include <p11-kit/pkcs11.h>

#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace {

CK_FUNCTION_LIST* real = nullptr;

/// Sessions that were open on a token when it was pulled.
std::set<CK_SESSION_HANDLE> lost;
std::set<CK_SESSION_HANDLE> sessions;

bool IsPulled(CK_SLOT_ID slot) {
    std::string label;
    if (!std::getline(std::ifstream(std::getenv("QM_TOKEN_PULLED")), label))
        return false;
    CK_TOKEN_INFO info{};
    return real->C_GetTokenInfo(slot, &info) == CKR_OK &&
           std::string_view(reinterpret_cast<const char*>(info.label), sizeof info.label)
               .starts_with(label + ' ');
}

/// Notices a pull that was not noticed yet.
CK_RV Present(CK_SESSION_HANDLE session) {
    for (const CK_SESSION_HANDLE one : sessions) {
        CK_SESSION_INFO info{};
        if (real->C_GetSessionInfo(one, &info) == CKR_OK && IsPulled(info.slotID))
            lost.insert(one);
    }
    return lost.contains(session) ? CKR_DEVICE_REMOVED : CKR_OK;
}

CK_RV GetSlotList(CK_BBOOL present, CK_SLOT_ID* slots, CK_ULONG* count) {
    std::vector<CK_SLOT_ID> all(64);
    CK_ULONG found = all.size();
    const CK_RV answer = real->C_GetSlotList(present, all.data(), &found);
    if (answer != CKR_OK)
        return answer;
    all.resize(found);
    Present(0);
    std::erase_if(all, IsPulled);
    const CK_ULONG capacity = *count;
    *count = all.size();
    if (slots == nullptr)
        return CKR_OK;
    if (capacity < all.size())
        return CKR_BUFFER_TOO_SMALL;
    std::copy(all.begin(), all.end(), slots);
    return CKR_OK;
}

CK_RV OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, void* application, CK_NOTIFY notify,
                  CK_SESSION_HANDLE* session) {
    if (IsPulled(slot))
        return CKR_TOKEN_NOT_PRESENT;
    const CK_RV answer = real->C_OpenSession(slot, flags, application, notify, session);
    if (answer == CKR_OK)
        sessions.insert(*session);
    return answer;
}

// The last session that is closed logs the user out, as a pull does.
CK_RV CloseSession(CK_SESSION_HANDLE session) {
    sessions.erase(session);
    const bool wasLost = lost.erase(session) > 0;
    const CK_RV answer = real->C_CloseSession(session);
    return wasLost ? CKR_SESSION_HANDLE_INVALID : answer;
}

template <auto Call>
struct WhilePresent;

template <class... Arguments, CK_RV (*CK_FUNCTION_LIST::*Call)(CK_SESSION_HANDLE, Arguments...)>
struct WhilePresent<Call> {
    static CK_RV Do(CK_SESSION_HANDLE session, Arguments... arguments) {
        const CK_RV present = Present(session);
        return present == CKR_OK ? (real->*Call)(session, arguments...) : present;
    }
};

} // namespace

extern "C" CK_RV C_GetFunctionList(CK_FUNCTION_LIST** list) {
    static CK_FUNCTION_LIST functions{};
    void* const library = dlopen(std::getenv("QM_SOFTHSM2"), RTLD_NOW);
    if (library == nullptr)
        return CKR_GENERAL_ERROR;
    reinterpret_cast<CK_C_GetFunctionList>(dlsym(library, "C_GetFunctionList"))(&real);
    functions = *real;
    functions.C_GetSlotList = GetSlotList;
    functions.C_OpenSession = OpenSession;
    functions.C_CloseSession = CloseSession;
    functions.C_Login = WhilePresent<&CK_FUNCTION_LIST::C_Login>::Do;
    functions.C_GetAttributeValue = WhilePresent<&CK_FUNCTION_LIST::C_GetAttributeValue>::Do;
    functions.C_FindObjectsInit = WhilePresent<&CK_FUNCTION_LIST::C_FindObjectsInit>::Do;
    functions.C_FindObjects = WhilePresent<&CK_FUNCTION_LIST::C_FindObjects>::Do;
    functions.C_FindObjectsFinal = WhilePresent<&CK_FUNCTION_LIST::C_FindObjectsFinal>::Do;
    functions.C_SignInit = WhilePresent<&CK_FUNCTION_LIST::C_SignInit>::Do;
    functions.C_Sign = WhilePresent<&CK_FUNCTION_LIST::C_Sign>::Do;
    *list = &functions;
    return CKR_OK;
}
