#pragma once

#include <p11-kit/pkcs11.h>

#include <atomic>
#include <string>
#include <vector>

/// What a test may see and change of a fake token: it pulls the token and puts it back, changes its PIN, and
/// counts what was asked of it. Plain data, since it is shared between the test and the module that it has
/// loaded.
struct FakeTokenState {
    /// Out of the slot: sessions, login and object handles are no more, as with a card that was pulled.
    void Pull() {
        present = false;
        loggedIn = false;
        ++pulls;
    }
    void PutBack() { present = true; }

    bool present = true;
    unsigned pulls = 0;
    std::string label = "Fake Token";
    std::string serialNumber = "0001";
    std::string pin = "1234";
    unsigned pinTries = 3; ///< so many wrong ones, and the PIN is locked
    CK_FLAGS moreTokenFlags = 0;
    CK_RV goneAnswer = CKR_DEVICE_REMOVED; ///< to calls on a session that the pull ended
    unsigned logins = 0;                   ///< attempts of CKU_USER
    std::vector<std::string> pinsTried;    ///< all that arrived, in this order
    CK_RV loginAnswer = CKR_OK;            ///< in the place of CKR_OK and CKR_PIN_INCORRECT, unless CKR_OK
    unsigned keyLogins = 0;                ///< attempts of CKU_CONTEXT_SPECIFIC
    std::atomic<unsigned> listings = 0;    ///< C_GetSlotList calls; read while another thread is in one
    CK_SLOT_ID openedSlot = 0;             ///< of the last C_OpenSession
    bool loggedIn = false;

    /// Another of the same name and number is in its place, and the module has not noticed: its sessions and
    /// handles go on.
    void Exchange() {
        exchanged = !exchanged;
        loggedIn = false;
    }
    bool exchanged = false;
    std::vector<std::string> pinsTriedAtTheOther;
};
