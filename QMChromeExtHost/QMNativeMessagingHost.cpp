#include "QMNativeMessagingHost.h"

#include "CardList.h"
#include "Frames.h"
#include "InMessage.h"
#include "QMTools.h"
#include "SelectionWindow.h"
#include "SignedDataXml.h"
#include "TokenManager.h"
#include "ck/CkAsn.h"
#include "ck/CkBinData.h"
#include "ck/CkJsonObject.h"

#include <wx/app.h>
#include <wx/frame.h>
#include <wx/utils.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <new>
#include <stdexcept>
#include <string_view>
#include <utility>

bool QMNativeMessagingHost::bSelCertUIOpen = false;

namespace {

const std::string kErrorPrefix = "QMHost Error: ";

/// Which "action" runs which operation. An operation takes the members that it names out of the message.
struct ActionRow {
    const char* action;
    OperationResult (*run)(QMNativeMessagingHost& host, InMessage& in);
};

using Host = QMNativeMessagingHost;

constexpr ActionRow kActionTable[] = {
    {"GetSelCertFromToken", [](Host& host, InMessage&) { return host.GetSelCertFromToken(); }},
    {"GSTReturnSign",
     [](Host& host, InMessage& in) {
         return host.GetGSTReturnSignature(std::move(in.hash), std::move(in.HashAlgorithm));
     }},
    {"ITReturnSign",
     [](Host& host, InMessage& in) {
         return host.GetITReturnSignature(std::move(in.hash), std::move(in.PAN), std::move(in.HashAlgorithm));
     }},
    {"PdfSignFromToken",
     [](Host& host, InMessage& in) {
         return host.GetPdfSignature(std::move(in.hash), in.CertThumbPrint.c_str(),
                                     std::move(in.HashAlgorithm));
     }},
    {"SignAuthToken",
     [](Host& host, InMessage& in) {
         return host.SignAuthToken(std::move(in.authtoken), std::move(in.HashAlgorithm));
     }},
    {"SignXML", [](Host& host,
                   InMessage& in) { return host.SignXML(std::move(in.XmlDoc), std::move(in.XmlSignParms)); }},
};

/// A line of the loop itself, which nothing may end: without memory for it the line is left out.
void LogStep(std::string_view text, LogLevels level) noexcept {
    try {
        if (LogsAt(level))
            LogTextToFile(std::string(text), level);
    } catch (const std::bad_alloc&) {
    }
}

/// The listed certificate whose member `name` is `value`. Throws std::runtime_error when there is none.
std::unique_ptr<CkJsonObject> FindCertificate(const char* name, const std::string& value) {
    const int CertIndex = tokenManager.TokenCertList.FindObject(name, value, true);
    if (CertIndex < 0)
        throw std::runtime_error("Certificate not found in the token's certificate list: " + value);
    return tokenManager.TokenCertList.ObjectAt(CertIndex);
}

/// Runs the body of an action; what it throws becomes a failure that names the action.
template <class Body>
OperationResult RunAction(const char* name, Body body) {
    try {
        return body();
    } catch (const std::runtime_error& e) {
        return Failure(name, e);
    }
}

/// Fills the window's list from the token. False with the reason when no session can be opened.
OperationResult LoadCertificateList() {
    const wxBusyCursor busy;
    LogTextToFile("0 Items in Certificate List. Loading List...", DEBUG);
    ShowLoadingRow();
    if (TokenManager::TokenState < TOKEN_SESSION_OPEN) {
        if (OperationResult opened = tokenManager.TokenOpenSession(); !opened.success) {
            htmlLstCert->Clear();
            QMNativeMessagingHost::bSelCertUIOpen = false;
            return opened;
        }
    }
    const std::vector<std::string> CertificateHtmlList = tokenManager.BuildTokenCertList();
    CardsOf(htmlLstCert).SetCards(CertificateHtmlList, tokenManager.ShownCards);
    LogTextToFile(std::to_string(CertificateHtmlList.size()) + " items Loaded in Certificate List.", DEBUG);
    if (!CertificateHtmlList.empty())
        htmlLstCert->SetSelection(0);
    return {true, ""};
}

/// At the debug level the latest structure is kept in the working directory.
void WriteDebugCopy(const char* fileName, const std::string& base64) {
    if (AppLogLevel == DEBUG)
        std::ofstream(fileName) << base64;
}

} // namespace

void QMNativeMessagingHost::CheckForInwordMsgFromBrowser() {
    LogStep("In CheckForInwordMsgFromBrowser", DEBUG);
    while (const std::unique_ptr<CkJsonObject> jObj{ReadStdin()}) {
        std::string nonce = jObj->TakeString("nonce");
        OperationResult msgResponse = ProcessInMessage(jObj.get());
        LogStep("ProcessInMessage Returned.", DEBUG);
        LogStep(msgResponse.text, DEBUG);
        ReturnResult(std::move(msgResponse), std::move(nonce));
    }
    LogStep("Exiting ReadStdin Loop and Closing Host Application.", INFO);
    SelCertFrame->Close(true);
    wxYield();
}

CkJsonObject* QMNativeMessagingHost::ReadStdin() {
    LogTextToFile("In ReadStdin()", DEBUG);
    std::unique_ptr<CkJsonObject> jObj;
    try {
        int iLen = 0;
        if (!ReadFrameLength(iLen))
            return nullptr;
        LogTextToFile("after iSize == 4", DEBUG);
        LogTextToFile("BUFFER LEN " + std::to_string(iLen), DEBUG);
        if (iLen <= 0)
            return nullptr;
        LogTextToFile("after iLen > 0", DEBUG);
        const FrameText jsonMsg = ReadFrameText(iLen);
        if (LogsAt(DEBUG))
            LogTextToFile(jsonMsg.get(), DEBUG);
        jObj = std::make_unique<CkJsonObject>();
        jObj->Load(jsonMsg.get());
    } catch (const std::exception& e) {
        Failure("ReadStdin", e);
    }
    return jObj.release();
}

OperationResult QMNativeMessagingHost::ProcessInMessage(CkJsonObject* InData) {
    try {
        InMessage in(*InData);
        const auto row =
            std::find_if(std::begin(kActionTable), std::end(kActionTable),
                         [&](const ActionRow& candidate) { return in.action == candidate.action; });
        if (row != std::end(kActionTable))
            return row->run(*this, in);
        return {false, "echo: " + in.message};
    } catch (const std::exception& e) {
        return Failure("ProcessInMessage", e);
    }
}

void QMNativeMessagingHost::ReturnResult(OperationResult RespData, std::string nonce) try {
    CkJsonObject RespJsonObj;
    try {
        if (RespData.success) {
            RespJsonObj.AppendInt("status_cd", 1);
            RespJsonObj.AppendString("result", std::move(RespData.text));
        } else {
            const std::string resultResp = kErrorPrefix + RespData.text;
            RespJsonObj.AppendInt("status_cd", 0);
            RespJsonObj.AppendString("result", resultResp);
            LogTextToFile(resultResp, DEBUG);
        }
        RespJsonObj.AppendString("nonce", std::move(nonce));
        WriteFrame(RespJsonObj.emit());
    } catch (const std::exception& e) {
        // No second reply: one may have gone out in part.
        RespJsonObj.AppendInt("status_cd", 0);
        RespJsonObj.AppendString("result", kErrorPrefix + e.what());
        throw;
    }
} catch (const std::exception& e) {
    Failure("ReturnResult", e);
}

// The choice of certificate.

OperationResult QMNativeMessagingHost::ShowSelectCertDialog() {
    try {
        bSelCertUIOpen = true;
        LogTextToFile("Opening Select Certificate Dialog", INFO);
        htmlLstCert->SetFocus();
        SelCertFrame->Show();
        CardsOf(htmlLstCert).ForgetSeen();
        // Once: afterwards the window stays where the user moves it.
        static bool isFirstShow = true;
        const bool isFirst = std::exchange(isFirstShow, false);
        if (isFirst)
            PlaceWindow();
        YieldPauseYield();
        if (isFirst && bSelCertUIOpen) // one that has been answered already stays away
            BringWindowBack();
        if (htmlLstCert->IsEmpty()) {
            if (OperationResult loaded = LoadCertificateList(); !loaded.success) {
                SelCertFrame->Hide();
                wxYield();
                return loaded;
            }
        }
        do {
            wxYield();
            Pause();
        } while (bSelCertUIOpen);
    } catch (...) {
        htmlLstCert->Clear();
        bSelCertUIOpen = false;
        SelCertFrame->Hide();
        wxYield();
        throw;
    }
    LogTextToFile("Select Certificate Dialog Closed", INFO);
    if (selCKA_ID == "CANCEL")
        return {false, "User Canceled without Selecting Certificate."};
    if (!selCKA_ID.empty())
        return {true, selCKA_ID};
    return {false, "Select Certificate Response Empty."};
}

OperationResult QMNativeMessagingHost::GetSelCertFromToken() {
    try {
        if (OperationResult selCertResp = ShowSelectCertDialog(); !selCertResp.success)
            return selCertResp;
        const int index = tokenManager.TokenCertList.FindObject("CKA_ID", selCKA_ID, true);
        if (index < 0)
            return {false,
                    "GetSelCertFromToken - Selected Key ID Not Found in Certificates List: " + selCKA_ID};
        return {true, tokenManager.TokenCertList.ObjectAt(index)->emit()};
    } catch (const std::exception& e) {
        return Failure("GetSelCertFromToken", e);
    }
}

// The signing actions.

OperationResult QMNativeMessagingHost::GetGSTReturnSignature(std::string hash, std::string hashAlgo) {
    return RunAction("GetGSTReturnSignature", [&]() -> OperationResult {
        if (OperationResult selCertResp = ShowSelectCertDialog(); !selCertResp.success)
            return selCertResp;
        const std::string CertB64 = FindCertificate("CKA_ID", selCKA_ID)->stringOf("Cert");
        return GenCMSSign(std::move(hash), hashAlgo, CertB64.c_str(), selCKA_ID.c_str());
    });
}

OperationResult QMNativeMessagingHost::GetITReturnSignature(std::string hash, std::string,
                                                            std::string hashAlgo) {
    return RunAction("GetITReturnSignature", [&]() -> OperationResult {
        if (OperationResult selCertResp = ShowSelectCertDialog(); !selCertResp.success)
            return selCertResp;
        CkByteData byteHash;
        byteHash.appendEncoded(hash, "Base64");
        // The key is looked up by the request's hash, not by the user's choice: deliberately so.
        return SignHash(hash.c_str(), std::move(byteHash), hashAlgo);
    });
}

OperationResult QMNativeMessagingHost::GetPdfSignature(std::string pdfHash, const char* certThumbPrint,
                                                       std::string hashAlgo) {
    return RunAction("GetPDFSignature", [&] {
        const std::unique_ptr<CkJsonObject> SearchedCert = FindCertificate("CertThumbPrint", certThumbPrint);
        const std::string CertB64 = SearchedCert->stringOf("Cert");
        const std::string SearchedCert_CKA_ID = SearchedCert->stringOf("CKA_ID");
        return GenPkcs7Sign(std::move(pdfHash), hashAlgo, CertB64.c_str(), SearchedCert_CKA_ID.c_str());
    });
}

OperationResult QMNativeMessagingHost::SignAuthToken(std::string authToken, std::string hashAlgo) {
    return RunAction("SignAuthToken", [&]() -> OperationResult {
        if (OperationResult selCertResp = ShowSelectCertDialog(); !selCertResp.success)
            return selCertResp;
        CkByteData byteAuthToken;
        byteAuthToken.appendStr(std::move(authToken));
        return SignData(selCKA_ID.c_str(), std::move(byteAuthToken), hashAlgo);
    });
}

OperationResult QMNativeMessagingHost::SignXML(std::string, std::string) {
    return {false, "Not Implimented."};
}

OperationResult QMNativeMessagingHost::SignData(const char* KeyID, CkByteData dataBytes,
                                                std::string hashAlgo) {
    LogTextToFile(std::string("Trying to Get Private Key for CKA_ID: ") + KeyID, DEBUG);
    TokenKey pvtKeyResp = tokenManager.GetTokenPvtKey(KeyID);
    if (!pvtKeyResp.found)
        return {false, std::move(pvtKeyResp.message)};
    if (LogsAt(DEBUG))
        LogTextToFile("Sign Data Method:" + dataBytes.getEncoded("Hex"), DEBUG);
    const unsigned char* bytes = dataBytes.getRange(0, dataBytes.getSize());
    return tokenManager.TokenSignData(pvtKeyResp.hPrivateKey, bytes, hashAlgo);
}

OperationResult QMNativeMessagingHost::SignHash(const char* KeyID, CkByteData hashBytes,
                                                std::string hashAlgo) {
    LogTextToFile(std::string("Trying to Get Private Key for CKA_ID: ") + KeyID, DEBUG);
    TokenKey pvtKeyResp = tokenManager.GetTokenPvtKey(KeyID);
    if (!pvtKeyResp.found)
        return {false, std::move(pvtKeyResp.message)};

    CkAsn MessageDigest;
    MessageDigest.AppendSequenceR()->AppendOid(QMTools::GetHashOid(hashAlgo));
    MessageDigest.AppendOctets(hashBytes.getData(), "Base64");
    CkByteData pkcs1DigestInfoBytes;
    MessageDigest.GetBinaryDer(pkcs1DigestInfoBytes);

    const std::vector<unsigned char> signResult = tokenManager.TokenSignHash(
        pvtKeyResp.hPrivateKey, pkcs1DigestInfoBytes.getRange(0, pkcs1DigestInfoBytes.getSize()));
    if (signResult.empty()) {
        LogTextToFile("Empty Response form method TokenSignHash()", DEBUG);
        return {false, "Empty Response form method TokenSignHash()"};
    }
    CkBinData signBinData;
    for (const unsigned char byte : signResult)
        signBinData.AppendByte(byte);
    std::string SignB64 = signBinData.getEncoded("Base64");
    LogTextToFile("SignHash() RSA Signature: " + SignB64, DEBUG);
    return {true, std::move(SignB64)};
}

// The two structures.

OperationResult QMNativeMessagingHost::GenPkcs7Sign(std::string pdfHash, std::string hashAlgo,
                                                    const char* CertB64, const char* SearchedCert_CKA_ID) {
    const char* hashOID = QMTools::GetHashOid(hashAlgo);
    LogTextToFile("Entered GenPkcs7Sign", DEBUG);
    try {
        const SignerCertificate signer(CertB64);
        CkXml xml;
        AppendHead(xml, hashOID);
        AppendSigner(xml, signer, hashOID);
        AppendSignedAttributes(xml, pdfHash);
        AppendSignatureAlgorithm(xml);

        OperationResult signResult = SignData(SearchedCert_CKA_ID, SignedAttributesDer(pdfHash), hashAlgo);
        if (!signResult.success)
            return signResult;
        std::string Pkcs7b64 = Finish(std::move(xml), signResult.text);
        WriteDebugCopy("PKCS7Sign.txt", Pkcs7b64);
        return {true, std::move(Pkcs7b64)};
    } catch (const std::runtime_error& e) {
        return Failure("GenPkcs7Sign", e);
    }
}

OperationResult QMNativeMessagingHost::GenCMSSign(std::string hash, std::string hashAlgo, const char* CertB64,
                                                  const char* SearchedCert_CKA_ID) {
    const char* hashOID = QMTools::GetHashOid(hashAlgo);
    LogTextToFile("Entered GenCMSSign", DEBUG);
    try {
        CkByteData bHash;
        bHash.appendStr(std::move(hash));
        const SignerCertificate signer(CertB64);
        CkXml xml;
        AppendHead(xml, hashOID);
        AppendContent(xml, bHash.getEncoded("Base64")); // kept here only: it may have 43 MiB
        AppendSigner(xml, signer, hashOID);
        AppendSignatureAlgorithm(xml);

        if (LogsAt(DEBUG))
            LogTextToFile("GST SIGN BYTES B4 SIGN: " + bHash.getEncoded("Hex"), DEBUG);
        OperationResult signResult = SignData(SearchedCert_CKA_ID, std::move(bHash), hashAlgo);
        if (!signResult.success)
            return signResult;
        std::string CMSb64 = Finish(std::move(xml), signResult.text);
        WriteDebugCopy("CMSSign.txt", CMSb64);
        return {true, std::move(CMSb64)};
    } catch (const std::runtime_error& e) {
        return Failure("GenCMSSign", e);
    }
}
