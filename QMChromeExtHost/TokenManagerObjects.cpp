// The objects on the token: its certificates, its private keys, and what these sign.

#include "TokenManager.h"

#include "Pkcs11Call.h"
#include "QMX509Decoder.h"
#include "ck/CkBinData.h"

#include <array>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace {

/// Far above any certificate; a module that reports a longer attribute is talking nonsense.
constexpr CK_ULONG kMaxAttributeBytes = 16UL << 20;

/// Far above any token; a module whose search never ends must not hold the user for ever.
constexpr int kMaxCertificates = 100'000;

/// Enough for the signature of an RSA key of 8192 bits.
constexpr std::size_t kSignatureBufferBytes = 1024;

} // namespace

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
                throw std::runtime_error("C_FindObjects gives more than " +
                                         std::to_string(kMaxCertificates) + " certificates");
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
