#include "TokenManager.h"

#include "PinDialog.h"
#include "Pkcs11Call.h"
#include "ck/CkBinData.h"
#include "ck/CkJsonObject.h"
#include "ck/CkSecureErase.h"

#include <dlfcn.h>
#include <sys/mman.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>

namespace {

/// Far above any certificate; a module that reports a longer attribute is talking nonsense.
constexpr CK_ULONG kMaxAttributeBytes = 16UL << 20;

/// Far above any token; a module whose search never ends must not hold the user for ever.
constexpr int kMaxCertificates = 100'000;

/// Enough for the signature of an RSA key of 8192 bits.
constexpr std::size_t kSignatureBufferBytes = 1024;

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

template <class EntryPoint>
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

} // namespace

TokenStates TokenManager::TokenState = TOKEN_NOT_FOUND;

TokenManager::TokenManager() {
    // One place for good, which is not swapped out. Where it may not be locked (RLIMIT_MEMLOCK) it is kept
    // all the same.
    TokenUserPin.reserve(kLongestPin);
    // mlock2 with no flags is mlock, but for the sanitizers, which make that one do nothing.
    mlock2(TokenUserPin.data(), TokenUserPin.capacity(), 0);
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

std::vector<std::string> TokenManager::BuildTokenCertList() {
    std::vector<std::string> CertificateHtmlList;
    TokenCertList.Clear();
    SelectCertDisplayListCKA_ID.clear();
    ShownCards.clear();
    int numObj = 0;
    try {
        CK_OBJECT_CLASS certClass = CKO_CERTIFICATE;
        CK_CERTIFICATE_TYPE certType = CKC_X_509;
        CK_BBOOL onToken = CK_TRUE;
        std::array<CK_ATTRIBUTE, 3> search = {{{CKA_CLASS, &certClass, kTemplateUlongLength},
                                               {CKA_CERTIFICATE_TYPE, &certType, kTemplateUlongLength},
                                               {CKA_TOKEN, &onToken, sizeof onToken}}};
        CheckResult(CallModule(F_FindObjectsInit, hTokenSession, search.data(), CK_ULONG{search.size()}),
                    "BuildTokenCertList - C_FindObjectsInit");
        for (;; ++numObj) {
            CK_OBJECT_HANDLE hCKObj = 0;
            CK_ULONG ulRetCount = 0;
            CheckResult(CallModule(F_FindObjects, hTokenSession, &hCKObj, CK_ULONG{1}, &ulRetCount),
                        "BuildTokenCertList - C_FindObjects");
            if (ulRetCount != 1)
                break;
            if (numObj == kMaxCertificates)
                throw std::runtime_error("C_FindObjects gives more than " + std::to_string(kMaxCertificates) +
                                         " certificates");
            AppendCertificate(hCKObj, CertificateHtmlList);
        }
        CheckResult(CallModule(F_FindObjectsFinal, hTokenSession), "BuildTokenCertList - C_FindObjectsFinal");
        if (numObj == 0)
            LogTextToFile("Can't find X.509 Certificate in Token", INFO);
        return CertificateHtmlList;
    } catch (const std::runtime_error& e) {
        Failure("GetTokenCertList", e);
        throw std::runtime_error(e.what());
    }
}

void TokenManager::AppendCertificate(CK_OBJECT_HANDLE hCKObj, std::vector<std::string>& CertificateHtmlList) {
    std::array<CK_ATTRIBUTE, 2> attributes = {{{CKA_VALUE, nullptr, 0}, {CKA_ID, nullptr, 0}}};
    auto& [value, id] = attributes;
    CheckResult(CallModule(F_GetAttributeValue, hTokenSession, hCKObj, attributes.data(),
                           CK_ULONG{attributes.size()}),
                "BuildTokenCertList - C_GetAttributeValue for Sizing");
    if (value.ulValueLen > kMaxAttributeBytes || id.ulValueLen > kMaxAttributeBytes)
        throw std::runtime_error("C_GetAttributeValue gives a length above " +
                                 std::to_string(kMaxAttributeBytes) + " bytes");

    const CK_ULONG valueCapacity = value.ulValueLen;
    const CK_ULONG idCapacity = id.ulValueLen;
    std::vector<char> der(valueCapacity);
    std::vector<char> idText(idCapacity + 1); // one zero byte behind the longest id
    value.pValue = der.data();
    id.pValue = idText.data();
    CheckResult(CallModule(F_GetAttributeValue, hTokenSession, hCKObj, attributes.data(),
                           CK_ULONG{attributes.size()}),
                "BuildTokenCertList - C_GetAttributeValue");
    if (value.ulValueLen > valueCapacity || id.ulValueLen > idCapacity)
        throw std::runtime_error("C_GetAttributeValue gives more than it said");
    const std::string cka_id = idText.data();
    LogTextToFile("CKA_ID: " + cka_id, DEBUG);

    QMX509Decoder decoder;
    const std::unique_ptr<CkJsonObject> details(decoder.GetX509CertDetails(der.data(), value.ulValueLen));
    std::string html = decoder.GetX509CertHTML(der.data(), value.ulValueLen);
    LogTextToFile(html, DEBUG);
    const bool isChainCert = html == "ChainCert";
    details->AppendBool("ChainCert", isChainCert);
    if (!isChainCert) {
        CertificateHtmlList.push_back(std::move(html));
        SelectCertDisplayListCKA_ID.push_back(cka_id);
        ShownCards.push_back(decoder.GetX509CertShown(der.data(), value.ulValueLen));
    }
    details->AppendString("CKA_ID", cka_id);
    TokenCertList.AddObjectCopyAt(-1, *details);
    if (LogsAt(DEBUG))
        LogTextToFile(details->emit(), DEBUG);
}

TokenKey TokenManager::GetTokenPvtKey(const char* cka_id) {
    CK_OBJECT_HANDLE pPvtKey = 0;
    try {
        if (TokenState != TOKEN_LOGEDIN) {
            if (const OperationResult login = TokenLogin(TokenUserPin); !login.success)
                throw std::runtime_error(login.text);
        }
        CK_OBJECT_CLASS keyClass = CKO_PRIVATE_KEY;
        CK_KEY_TYPE keyType = CKK_RSA;
        CK_BBOOL onToken = CK_TRUE;
        std::array<CK_ATTRIBUTE, 4> search = {{{CKA_CLASS, &keyClass, kTemplateUlongLength},
                                               {CKA_KEY_TYPE, &keyType, kTemplateUlongLength},
                                               {CKA_TOKEN, &onToken, sizeof onToken},
                                               // The terminating zero is part of the value.
                                               {CKA_ID, const_cast<char*>(cka_id), std::strlen(cka_id) + 1}}};
        CheckResult(CallModule(F_FindObjectsInit, hTokenSession, search.data(), CK_ULONG{search.size()}),
                    "GetTokenPvtKey - C_FindObjectsInit");
        CK_ULONG ulRetCount = 0;
        CheckResult(CallModule(F_FindObjects, hTokenSession, &pPvtKey, CK_ULONG{1}, &ulRetCount),
                    "GetTokenPvtKey - C_FindObjects");
        if (ulRetCount == 0) {
            // The search stays open: a module that insists on C_FindObjectsFinal tells so at the next one.
            LogTextToFile("Private Key NOT Found", INFO);
            return {false, "Private Key NOT Found", 0};
        }
        CheckResult(CallModule(F_FindObjectsFinal, hTokenSession), "GetTokenPvtKey - C_FindObjectsFinal");
        return {true, "", pPvtKey};
    } catch (const std::runtime_error& e) {
        LogTextToFile(std::string("Error in GetTokenPvtKey(): ") + e.what(), EXCEPTION);
        return {false, "", pPvtKey};
    }
}

std::vector<unsigned char> TokenManager::Sign(CK_OBJECT_HANDLE hPriKey, CK_MECHANISM_TYPE mechanism,
                                              const unsigned char* text) {
    CK_MECHANISM signMechanism = {mechanism, nullptr, 0};
    const CK_ULONG textLength = std::strlen(reinterpret_cast<const char*>(text));
    std::vector<unsigned char> signature(kSignatureBufferBytes);
    CK_ULONG signatureLength = signature.size();
    CheckResult(CallModule(F_SignInit, hTokenSession, &signMechanism, hPriKey), "C_SignInit");
    CheckResult(CallModule(F_Sign, hTokenSession, const_cast<CK_BYTE_PTR>(text), textLength, signature.data(),
                           &signatureLength),
                "C_Sign");
    if (signatureLength > signature.size())
        throw std::runtime_error("C_Sign gives a signature above " + std::to_string(signature.size()) +
                                 " bytes");
    signature.resize(signatureLength);
    return signature;
}

OperationResult TokenManager::TokenSignData(CK_OBJECT_HANDLE hPriKey, const unsigned char* ContentToSign,
                                            std::string hashAlgo) {
    CK_MECHANISM_TYPE mechanism = CKM_SHA256_RSA_PKCS;
    if (hashAlgo == "SHA384")
        mechanism = CKM_SHA384_RSA_PKCS;
    else if (hashAlgo == "SHA512")
        mechanism = CKM_SHA512_RSA_PKCS;
    try {
        const std::vector<unsigned char> signature = Sign(hPriKey, mechanism, ContentToSign);
        const char* signatureText = reinterpret_cast<const char*>(signature.data());
        LogTextToFile("pSignature:" + std::string(signatureText, strnlen(signatureText, signature.size())),
                      DEBUG);
        LogTextToFile("Signature Len:" + std::to_string(signature.size()), DEBUG);

        CkBinData signatureData;
        for (const unsigned char byte : signature)
            signatureData.AppendByte(byte);
        std::string signatureB64 = signatureData.getEncoded("Base64");
        LogTextToFile("TokenSignData() RSA Signature: " + signatureB64, DEBUG);
        return {true, std::move(signatureB64)};
    } catch (const std::runtime_error& e) {
        return Failure("TokenSignData", e);
    }
}

std::vector<unsigned char> TokenManager::TokenSignHash(CK_OBJECT_HANDLE hPriKey,
                                                       const unsigned char* hashToSign) {
    std::vector<unsigned char> signature;
    try {
        signature = Sign(hPriKey, CKM_RSA_PKCS, hashToSign);
    } catch (const std::runtime_error& e) {
        Failure("TokenSign", e);
    }
    LogTextToFile("END TokenSign()", DEBUG);
    return signature;
}
