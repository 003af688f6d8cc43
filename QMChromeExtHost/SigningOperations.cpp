// The signing actions, and the signatures over data and hashes that they are made of.

#include "QMNativeMessagingHost.h"

#include "QMTools.h"
#include "TokenManager.h"
#include "ck/CkAsn.h"
#include "ck/CkBinData.h"
#include "ck/CkJsonObject.h"

#include <functional>
#include <memory>
#include <stdexcept>

namespace {

/// The listed certificate whose member `name` is `value`. Throws std::runtime_error when there is none.
std::unique_ptr<CkJsonObject> FindCertificate(const char* name, const std::string& value) {
    const int CertIndex = tokenManager.TokenCertList.FindObject(name, value, true);
    if (CertIndex < 0)
        throw std::runtime_error("Certificate not found in the token's certificate list: " + value);
    return tokenManager.TokenCertList.ObjectAt(CertIndex);
}

/// Runs the body of an action; what it throws becomes a failure that names the action.
OperationResult RunAction(const char* name, const std::function<OperationResult()>& body) {
    try {
        return body();
    } catch (const std::runtime_error& e) {
        return Failure(name, e);
    }
}

} // namespace

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
