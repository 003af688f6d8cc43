#pragma once

#include "QMHostShared.h"
#include "ck/CkByteData.h"

#include <string>

class CkJsonObject;

/// Serves one browser extension over standard input and output: requests in, one reply each, one after
/// another, on the GUI thread. Each operation answers with its result or the reason of its failure.
class QMNativeMessagingHost {
public:
    /// True while the window waits for the user.
    static bool bSelCertUIOpen;

    // The request loop.

    /// Answers requests until standard input ends, then closes the window and with it the application.
    void CheckForInwordMsgFromBrowser();

    /// Reads the next frame: a length of 4 bytes in the machine's byte order (native messaging) and that many
    /// bytes of JSON text. Returns a new request that the caller owns, empty when the text is no JSON object;
    /// null at the end of input, a short or non-positive length, one that is beyond the limit, or without
    /// memory for the text.
    CkJsonObject* ReadStdin();

    /// Runs the operation that the request's "action" names, and takes the request's texts out of it. Throws
    /// nothing and writes nothing to standard output.
    OperationResult ProcessInMessage(CkJsonObject* InData);

    /// Writes one reply frame: "status_cd" (1 or 0), "result", "nonce".
    void ReturnResult(OperationResult RespData, std::string nonce);

    // The actions. Each returns what goes into the reply.

    /// The user's choice of certificate as its JSON record.
    OperationResult GetSelCertFromToken();
    /// A CMS SignedData (Base64 DER) that carries the text `hash`, signed with a certificate that the user
    /// chooses.
    OperationResult GetGSTReturnSignature(std::string hash, std::string hashAlgo);
    /// A raw RSA signature (Base64) over the Base64 digest `hash`, by the key whose CKA_ID is that same text.
    /// The window is shown; the choice and `PAN` are not used.
    OperationResult GetITReturnSignature(std::string hash, std::string PAN, std::string hashAlgo);
    /// A detached PKCS#7 SignedData (Base64 DER) over the Base64 digest `pdfHash`, by the listed certificate
    /// with the given SHA-1 thumbprint. Shows no window.
    OperationResult GetPdfSignature(std::string pdfHash, const char* certThumbPrint, std::string hashAlgo);
    /// A raw RSA signature (Base64) over the text `authToken`, with a certificate that the user chooses.
    OperationResult SignAuthToken(std::string authToken, std::string hashAlgo);
    /// Always fails with "Not Implimented.".
    OperationResult SignXML(std::string xmlDoc, std::string xmlSignParms);

    // What the actions are made of.

    /// Shows the window, fills it from the token on first use, and waits for the user. The chosen CKA_ID, or
    /// why there is none. Throws std::runtime_error when the certificates cannot be read, with the window
    /// hidden again.
    OperationResult ShowSelectCertDialog();

    /// Has the token hash and sign `dataBytes`, up to their first zero byte, with the key whose CKA_ID is
    /// `KeyID`. The Base64 of the signature.
    OperationResult SignData(const char* KeyID, CkByteData dataBytes, std::string hashAlgo);

    /// Has the token sign the DigestInfo of the digest that `hashBytes` holds as Base64 text. The Base64 of
    /// the signature. Throws std::runtime_error for an unsupported `hashAlgo`.
    OperationResult SignHash(const char* KeyID, CkByteData hashBytes, std::string hashAlgo);

    /// A detached PKCS#7 SignedData with the signed attributes contentType and messageDigest, in Base64.
    /// `pdfHash` is the Base64 digest of the document, `CertB64` the signer's certificate (Base64 DER).
    /// Throws std::runtime_error for an unsupported `hashAlgo`.
    OperationResult GenPkcs7Sign(std::string pdfHash, std::string hashAlgo, const char* CertB64,
                                 const char* SearchedCert_CKA_ID);

    /// A CMS SignedData that carries the text `hash` and no signed attributes, in Base64. Arguments and
    /// errors otherwise as GenPkcs7Sign.
    OperationResult GenCMSSign(std::string hash, std::string hashAlgo, const char* CertB64,
                               const char* SearchedCert_CKA_ID);
};
