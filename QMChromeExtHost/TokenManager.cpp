#include "TokenManager.h"

#include "Pkcs11Call.h"
#include "ck/CkSecureErase.h"

#include <dlfcn.h>
#include <sys/mman.h>
#include <wx/frame.h>
#include <wx/icon.h>
#include <wx/textdlg.h>

#include <cstdio>
#include <cstdlib>
#include <new>
#include <stdexcept>

namespace {

/// More slots than any machine has readers; a module that reports more is talking nonsense.
constexpr CK_ULONG kMaxSlots = 65536;

std::vector<CK_SLOT_ID> SlotBuffer(CK_ULONG count) {
    if (count > kMaxSlots)
        throw std::runtime_error("C_GetSlotList gives more than " + std::to_string(kMaxSlots) + " slots");
    try {
        return std::vector<CK_SLOT_ID>(count);
    } catch (const std::bad_alloc&) {
        throw std::runtime_error("Can't allocate enough memory");
    }
}

/// In bytes; tokens take far shorter ones.
constexpr std::size_t kLongestPin = 255;

template <typename EntryPoint>
EntryPoint Resolve(void* module, const char* name) {
    return reinterpret_cast<EntryPoint>(dlsym(module, name));
}

/// Erases a PIN at the end of the scope, however it is left.
class PinEraser {
public:
    explicit PinEraser(std::string& pin) : pin_(pin) {}
    ~PinEraser() { CkSecureErase(pin_); }
    PinEraser(const PinEraser&) = delete;
    PinEraser& operator=(const PinEraser&) = delete;

private:
    std::string& pin_;
};

/// Asks for the PIN and puts it into `pin`, empty when the user gave none. Leaves no other copy of ours
/// behind.
void AskTokenPin(std::string& pin) {
    wxTextEntryDialog dialog(SelCertFrame, "Please Enter Token PIN", "Quillmark", "",
                             wxOK | wxCANCEL | wxTE_PASSWORD | wxSTAY_ON_TOP, wxDefaultPosition);
    // wx keeps the styles of the text field and drops the one of the window.
    dialog.SetWindowStyleFlag(dialog.GetWindowStyleFlag() | wxSTAY_ON_TOP);
    dialog.SetIcon(frameIcon);
    dialog.ShowModal();

    wxString entered = dialog.GetValue();
    const wxScopedCharBuffer utf8 = entered.utf8_str(); // PKCS#11 section 5.6: a PIN is UTF-8
    pin.assign(utf8.data(), utf8.length());
    CkSecureErase(const_cast<char*>(utf8.data()), utf8.length());
    CkSecureErase(const_cast<wxChar*>(entered.wx_str()), entered.length() * sizeof(wxChar));
    // Overwrites the dialog's own value, which is as long.
    dialog.SetValue(wxString('*', entered.length()));
}

} // namespace

TokenStates TokenManager::TokenState = TOKEN_NOT_FOUND;

TokenManager::TokenManager() {
    // One place for good, which is not swapped out. Where it may not be locked (RLIMIT_MEMLOCK) it is kept all
    // the same.
    TokenUserPin.reserve(kLongestPin);
    mlock(TokenUserPin.data(), TokenUserPin.capacity());
}

TokenManager::~TokenManager() { CkSecureErase(TokenUserPin); }

OperationResult TokenManager::LoadTokenDrivers() {
    try {
        LogTextToFile("Start TokenManager()", DEBUG);
        handle = dlopen(TokenDriverFullPath.c_str(), RTLD_LAZY);
        if (!handle) {
            const std::string message =
                "Could not load Smartcard or Token driver from path: " + TokenDriverFullPath +
                ", exiting Quillmark Extension Host... \n\nPut the file in application folder with name "
                "'QMTokenDriver.so' and try again.";
            LogTextToFile(dlerror(), DEBUG);
            LogTextToFile(message, INFO);
            return {false, message};
        }
        F_Initialize = Resolve<CK_C_Initialize>(handle, "C_Initialize");
        F_Finalize = Resolve<CK_C_Finalize>(handle, "C_Finalize");
        F_GetSlotList = Resolve<CK_C_GetSlotList>(handle, "C_GetSlotList");
        F_OpenSession = Resolve<CK_C_OpenSession>(handle, "C_OpenSession");
        F_Login = Resolve<CK_C_Login>(handle, "C_Login");
        F_GetAttributeValue = Resolve<CK_C_GetAttributeValue>(handle, "C_GetAttributeValue");
        F_FindObjectsInit = Resolve<CK_C_FindObjectsInit>(handle, "C_FindObjectsInit");
        F_FindObjects = Resolve<CK_C_FindObjects>(handle, "C_FindObjects");
        F_FindObjectsFinal = Resolve<CK_C_FindObjectsFinal>(handle, "C_FindObjectsFinal");
        F_SignInit = Resolve<CK_C_SignInit>(handle, "C_SignInit");
        F_Sign = Resolve<CK_C_Sign>(handle, "C_Sign");
        F_SignFinal = Resolve<CK_C_SignFinal>(handle, "C_SignFinal");
        LogTextToFile("TokenManager() all statements SUCCESSFUL", DEBUG);
        const std::string report = "Token Drivers Loaded from " + TokenDriverFullPath;
        LogTextToFile(report, INFO);
        return {true, report};
    } catch (const std::exception& e) {
        std::string text =
            std::string("Error in Load Tokan Driver Lib: ") + e.what() + " :: " + TokenDriverFullPath;
        if (const char* loaderError = dlerror())
            text += std::string(" - ") + loaderError;
        LogTextToFile(text, EXCEPTION);
        return {false, text};
    }
}

void TokenManager::CheckResult(CK_RV rvRet, const char* PKCSFunction) {
    char errorBuf[255];
    if (rvRet == CKR_OK) {
        std::snprintf(errorBuf, sizeof errorBuf, "PKCS11 Operation [OK] %s", PKCSFunction);
        LogTextToFile(errorBuf, DEBUG);
        return;
    }
    std::snprintf(errorBuf, sizeof errorBuf, "[CKR_ERROR in %s] ErrCode = 0x%08X.", PKCSFunction,
                  static_cast<unsigned int>(rvRet));
    LogTextToFile(errorBuf, DEBUG);
    if (pSlotList)
        std::free(pSlotList);
    throw std::runtime_error(errorBuf);
}

OperationResult TokenManager::TokenOpenSession() {
    dlerror();
    LogTextToFile("Entering TokenOpenSession()", DEBUG);
    try {
        CheckResult(CallModule(F_Initialize, nullptr), "C_Initialize");
        bInited = true;

        CK_ULONG ulCount = 0;
        const CK_RV sizing = CallModule(F_GetSlotList, CK_BBOOL{CK_TRUE}, nullptr, &ulCount);
        LogTextToFile("Trying to Get Token Slot List", DEBUG);
        CheckResult(sizing, "C_GetSlotList");
        if (ulCount == 0) {
            TokenState = TOKEN_NOT_FOUND;
            CallModule(F_Finalize, nullptr);
            LogTextToFile("No slot with token attached.", DEBUG);
            return {false, "No slot with token attached."};
        }

        TokenState = TOKEN_PLUGGED;
        LogTextToFile("Found slots with the token attached.", DEBUG);
        std::vector<CK_SLOT_ID> slots = SlotBuffer(ulCount);
        LogTextToFile("Get the slots list.", DEBUG);
        CheckResult(CallModule(F_GetSlotList, CK_BBOOL{CK_TRUE}, slots.data(), &ulCount), "C_GetSlotList");
        if (ulCount == 0) // pulled between the two calls
            throw std::runtime_error("C_GetSlotList gives no slot any more");

        CheckResult(CallModule(F_OpenSession, slots.front(), CK_FLAGS{CKF_SERIAL_SESSION | CKF_RW_SESSION},
                               nullptr, nullptr, &hTokenSession),
                    "C_OpenSession");
        TokenState = TOKEN_SESSION_OPEN;
        LogTextToFile("Exiting Method TokenOpenSession()", DEBUG);
        return {true, "SUCCESS"};
    } catch (const std::runtime_error& e) {
        Failure("TokenOpenSession", e);
        return {false, e.what()};
    }
}

OperationResult TokenManager::TokenLogin(std::string strUserPin) {
    const PinEraser eraser(strUserPin);
    dlerror();
    try {
        if (TokenState != TOKEN_SESSION_OPEN) {
            if (OperationResult opened = TokenOpenSession(); !opened.success)
                return opened;
        }
        if (strUserPin.empty()) {
            AskTokenPin(strUserPin);
            if (strUserPin.empty())
                return {false, "Token User PIN required for Token Login, but given empty."};
        }
        CheckResult(CallModule(F_Login, hTokenSession, CK_USER_TYPE{CKU_USER},
                               reinterpret_cast<CK_UTF8CHAR_PTR>(strUserPin.data()),
                               CK_ULONG{strUserPin.size()}),
                    "C_Login");
        CkSecureErase(TokenUserPin);
        TokenUserPin = strUserPin;
        TokenState = TOKEN_LOGEDIN;
        LogTextToFile("Exiting Method TokenLogin()", DEBUG);
        return {true, "SUCCESS"};
    } catch (const std::runtime_error& e) {
        Failure("TokenLogin", e);
        return {false, e.what()};
    }
}
