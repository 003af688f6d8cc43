// The entry points that the host resolves: arguments checked, one thread at a time, failures turned into CKR
// codes.

#include "Backends.h"
#include "Driver.h"
#include "KeptPin.h"
#include "Pinentry.h"
#include "Pkcs11Error.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <exception>
#include <memory>
#include <new>
#include <utility>

using tokendriver::Driver;
using tokendriver::Pkcs11Error;

namespace {

struct Running {
    tokendriver::Backends backends;
    Driver driver{backends.Modules(), [](const tokendriver::SeenToken& token, tokendriver::KeptPin& pin) {
                      return tokendriver::AskByPinentry(token, pin);
                  }};
};

/// Set between C_Initialize and C_Finalize. A plain pointer, so that nothing happens at the end of a process
/// that does not finalise: the modules' own destructors may have run by then.
Running* running = nullptr;

std::atomic_flag inside = ATOMIC_FLAG_INIT;

/// The host promises with its null argument to C_Initialize that it calls from one thread only. A call that
/// breaks the promise answers CKR_FUNCTION_FAILED and touches nothing: ending the process instead would take
/// a signature with it.
class OneAtATime {
public:
    OneAtATime() : entered_(!inside.test_and_set(std::memory_order_acquire)) {}
    ~OneAtATime() {
        if (entered_)
            inside.clear(std::memory_order_release);
    }
    OneAtATime(const OneAtATime&) = delete;
    OneAtATime& operator=(const OneAtATime&) = delete;

    bool Entered() const { return entered_; }

private:
    bool entered_;
};

/// Every entry point's only way in and out: no exception crosses it.
template <class Call>
CK_RV Enter(Call call) noexcept {
    const OneAtATime guard;
    if (!guard.Entered())
        return CKR_FUNCTION_FAILED;
    try {
        return call();
    } catch (const Pkcs11Error& error) {
        return error.Code();
    } catch (const std::bad_alloc&) {
        return CKR_HOST_MEMORY;
    } catch (const std::exception&) {
        return CKR_GENERAL_ERROR;
    }
}

/// As Enter, for the calls that need an initialised driver; `call` is given it.
template <class Call>
CK_RV EnterRunning(Call call) noexcept {
    return Enter(
        [&call] { return running == nullptr ? CKR_CRYPTOKI_NOT_INITIALIZED : call(running->driver); });
}

/// PKCS#11 section 5.4: reserved must be null, and of the four mutex functions all or none. Locking cannot be
/// had here, so one who asks for it is told.
CK_RV CheckInitArguments(const CK_C_INITIALIZE_ARGS* arguments) {
    if (arguments == nullptr)
        return CKR_OK;
    const std::array isGiven = {arguments->CreateMutex != nullptr, arguments->DestroyMutex != nullptr,
                                arguments->LockMutex != nullptr, arguments->UnlockMutex != nullptr};
    const auto given = static_cast<std::size_t>(std::count(isGiven.begin(), isGiven.end(), true));
    if (arguments->pReserved != nullptr || (given > 0 && given < isGiven.size()))
        return CKR_ARGUMENTS_BAD;
    return given > 0 || (arguments->flags & CKF_OS_LOCKING_OK) != 0 ? CKR_CANT_LOCK : CKR_OK;
}

[[gnu::constructor]] void WhenLoaded() { tokendriver::SwitchOffCoreDumps(); }

} // namespace

extern "C" {

CK_RV C_Initialize(void* arguments) {
    return Enter([&]() -> CK_RV {
        if (running != nullptr)
            return CKR_CRYPTOKI_ALREADY_INITIALIZED;
        tokendriver::Check(CheckInitArguments(static_cast<CK_C_INITIALIZE_ARGS*>(arguments)));
        running = std::make_unique<Running>().release();
        return CKR_OK;
    });
}

CK_RV C_Finalize(void* reserved) {
    return EnterRunning([&](Driver&) -> CK_RV {
        if (reserved != nullptr)
            return CKR_ARGUMENTS_BAD;
        const std::unique_ptr<Running> ending(std::exchange(running, nullptr));
        return CKR_OK;
    });
}

// The slot is only ever shown with a token in it, so it makes no difference whether `tokenPresent` is asked
// for.
CK_RV C_GetSlotList(CK_BBOOL /*tokenPresent*/, CK_SLOT_ID* slots, CK_ULONG* count) {
    return EnterRunning([&](Driver& driver) -> CK_RV {
        return count == nullptr ? CKR_ARGUMENTS_BAD : driver.GetSlotList(slots, *count);
    });
}

CK_RV C_OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, void* /*application*/, CK_NOTIFY /*notify*/,
                    CK_SESSION_HANDLE* session) {
    return EnterRunning([&](Driver& driver) -> CK_RV {
        if (session == nullptr)
            return CKR_ARGUMENTS_BAD;
        if ((flags & CKF_SERIAL_SESSION) == 0)
            return CKR_SESSION_PARALLEL_NOT_SUPPORTED;
        *session = driver.OpenSession(slot);
        return CKR_OK;
    });
}

CK_RV C_Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_UTF8CHAR* pin, CK_ULONG length) {
    return EnterRunning([&](Driver& driver) -> CK_RV {
        if (pin == nullptr && length > 0)
            return CKR_ARGUMENTS_BAD;
        return driver.SessionOf(session).Login(user, {pin, length});
    });
}

CK_RV C_GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE* wanted,
                          CK_ULONG count) {
    return EnterRunning(
        [&](Driver& driver) { return driver.SessionOf(session).GetAttributeValue(object, wanted, count); });
}

CK_RV C_FindObjectsInit(CK_SESSION_HANDLE session, CK_ATTRIBUTE* wanted, CK_ULONG count) {
    return EnterRunning([&](Driver& driver) {
        return driver.SessionOf(session).FindObjectsInit({wanted, count});
    });
}

CK_RV C_FindObjects(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE* found, CK_ULONG most, CK_ULONG* count) {
    return EnterRunning([&](Driver& driver) -> CK_RV {
        if (count == nullptr || (found == nullptr && most > 0))
            return CKR_ARGUMENTS_BAD;
        return driver.SessionOf(session).FindObjects({found, most}, *count);
    });
}

CK_RV C_FindObjectsFinal(CK_SESSION_HANDLE session) {
    return EnterRunning([&](Driver& driver) { return driver.SessionOf(session).FindObjectsFinal(); });
}

CK_RV C_SignInit(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) {
    return EnterRunning([&](Driver& driver) -> CK_RV {
        return mechanism == nullptr ? CKR_ARGUMENTS_BAD : driver.SessionOf(session).SignInit(*mechanism, key);
    });
}

CK_RV C_Sign(CK_SESSION_HANDLE session, CK_BYTE* data, CK_ULONG dataLength, CK_BYTE* signature,
             CK_ULONG* length) {
    return EnterRunning([&](Driver& driver) -> CK_RV {
        if (length == nullptr || (data == nullptr && dataLength > 0))
            return CKR_ARGUMENTS_BAD;
        return driver.SessionOf(session).Sign({data, dataLength}, signature, *length);
    });
}

CK_RV C_SignFinal(CK_SESSION_HANDLE session, CK_BYTE* signature, CK_ULONG* length) {
    return EnterRunning([&](Driver& driver) -> CK_RV {
        return length == nullptr ? CKR_ARGUMENTS_BAD
                                 : driver.SessionOf(session).SignFinal(signature, *length);
    });
}

} // extern "C"
