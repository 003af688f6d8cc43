// The two SignedData builders with any certificate and any hash: what comes out is one DER value to its last
// byte, and libcrypto reads a CMS SignedData out of it when the certificate is one.

#include "FuzzedChoices.h"
#include "HostFolder.h"
#include "LinkedModule.h"
#include "QMNativeMessagingHost.h"
#include "Require.h"
#include "ck/CkAsn.h"
#include "support/Bytes.h"
#include "support/OpenSsl.h"

#include <string>

namespace {

/// Whether `der` is values to its last byte, down to the primitive ones.
bool IsDer(const unsigned char* next, const unsigned char* end, int depth) {
    while (next != end) {
        long length = 0;
        int tag = 0, tagClass = 0;
        const int header = ASN1_get_object(&next, &length, &tag, &tagClass, end - next);
        if (header & 0x81 || ((header & V_ASN1_CONSTRUCTED) && !IsDer(next, next + length, depth + 1)))
            return false;
        next += length;
    }
    return true;
}

/// A version 1 certificate has no version element, and the builders take its validity for the issuer.
bool HasVersion(const X509& certificate) { return X509_get_version(&certificate) > 0; }

void CheckSignedData(const OperationResult& built, const std::string& certificateDer,
                     const std::string* content) {
    Require(built.success, "a structure is built from every certificate");
    const std::string der = FromBase64(built.text);
    Require(ToBase64(der) == built.text, "the structure is one line of Base64");
    Require(ValueSize(der) == der.size() && IsDer(Octets(der), Octets(der) + der.size(), 0),
            "the structure is one DER value");

    CkAsn asDer;
    const Owned<X509> certificate = Decoded(d2i_X509, certificateDer);
    if (!certificate || !HasVersion(*certificate) || !asDer.LoadEncoded(ToBase64(certificateDer), "Base64"))
        return;

    const Owned<CMS_ContentInfo> cms = Decoded(d2i_CMS_ContentInfo, der);
    Require(cms && OBJ_obj2nid(CMS_get0_type(cms.get())) == NID_pkcs7_signed,
            "the structure is a SignedData");
    const Owned<STACK_OF(X509)> certificates(CMS_get1_certs(cms.get()));
    Require(sk_X509_num(certificates.get()) == 1 &&
                X509_cmp(sk_X509_value(certificates.get(), 0), certificate.get()) == 0,
            "it holds the certificate");
    Require(der.find(certificateDer) != std::string::npos, "the certificate is in it byte for byte");

    STACK_OF(CMS_SignerInfo)* signers = CMS_get0_SignerInfos(cms.get());
    Require(sk_CMS_SignerInfo_num(signers) == 1, "one has signed");
    CMS_SignerInfo* signer = sk_CMS_SignerInfo_value(signers, 0);
    Require(CMS_SignerInfo_cert_cmp(signer, certificate.get()) == 0, "the signer is the certificate's");
    const ASN1_OCTET_STRING* signature = CMS_SignerInfo_get0_signature(signer);
    Require(std::string(ASN1_STRING_get0_data(signature),
                        ASN1_STRING_get0_data(signature) + ASN1_STRING_length(signature)) ==
                linkedModule.signature,
            "the signature is the token's");

    ASN1_OCTET_STRING** carried = CMS_get0_content(cms.get());
    Require((carried && *carried) == (content != nullptr), "only CMS carries its content");
    if (content)
        Require(std::string((*carried)->data, (*carried)->data + (*carried)->length) == *content,
                "the content is the text");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    EnterHostFolder();
    // A certificate, then the choices.
    const std::string input(data, data + size);
    const std::size_t valueSize = ValueSize(input);
    const std::string certificate = input.substr(0, valueSize ? valueSize : size);
    FuzzedChoices choices(data + certificate.size(), size - certificate.size());
    const char* hashAlgo = choices.OneOf({"SHA256", "SHA1", "SHA384", "SHA512"});
    const std::string id = choices.String(20).c_str();
    std::string hash = choices.Rest();

    linkedModule.certificates = {{id, certificate}};
    linkedModule.PlugIn();
    QMNativeMessagingHost host;
    const std::string base64 = ToBase64(certificate);

    CheckSignedData(host.GenPkcs7Sign(hash, hashAlgo, base64.c_str(), id.c_str()), certificate, nullptr);
    Require(linkedModule.signedBytes.starts_with("\x31") && linkedModule.signedBytes.size() > 4,
            "the signed attributes are a SET");

    hash = hash.c_str(); // no request can carry a zero byte
    CheckSignedData(host.GenCMSSign(hash, hashAlgo, base64.c_str(), id.c_str()), certificate, &hash);
    Require(linkedModule.signedBytes == hash, "the token was given the text");
    return 0;
}
