#include "QMNativeMessagingHost.h"
#include "ScriptedToken.h"

#include "ck/CkByteData.h"
#include "ck/CkJsonObject.h"

#include <linux/capability.h>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <memory>

namespace {

std::string Decode(const std::string& base64) {
    CkByteData data;
    data.appendEncoded(base64, "Base64");
    return {data.getData(), data.getSize()};
}

std::string Encode(const std::string& bytes) {
    CkByteData data;
    data.appendStr(bytes);
    return data.getEncoded("Base64");
}

CkByteData Bytes(const std::string& bytes) {
    CkByteData data;
    data.appendStr(bytes);
    return data;
}

struct OpenSslDeleter {
    void operator()(CMS_ContentInfo* cms) const { CMS_ContentInfo_free(cms); }
    void operator()(BIO* bio) const { BIO_free_all(bio); }
};

std::unique_ptr<BIO, OpenSslDeleter> MemoryBio(const std::string& bytes) {
    return std::unique_ptr<BIO, OpenSslDeleter>(
        BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
}

/// OpenSSL's verdict on a SignedData, with the content that it carries, or with `detached` content.
bool CmsVerifies(const std::string& der, const std::string* detached, std::string* content) {
    const auto input = MemoryBio(der);
    const std::unique_ptr<CMS_ContentInfo, OpenSslDeleter> cms(d2i_CMS_bio(input.get(), nullptr));
    const auto data = detached ? MemoryBio(*detached) : nullptr;
    const std::unique_ptr<BIO, OpenSslDeleter> out(BIO_new(BIO_s_mem()));
    if (!cms || CMS_verify(cms.get(), nullptr, nullptr, data.get(), out.get(),
                           CMS_BINARY | CMS_NO_SIGNER_CERT_VERIFY) != 1)
        return false;
    char* bytes = nullptr;
    const long length = BIO_get_mem_data(out.get(), &bytes);
    if (content)
        content->assign(bytes, static_cast<std::size_t>(length));
    return true;
}

std::string Digest(const EVP_MD* algorithm, const std::string& text) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(text.data(), text.size(), digest, &length, algorithm, nullptr);
    return {reinterpret_cast<const char*>(digest), length};
}

/// Takes root's right to read everything away for a while; others never had it.
class WithoutPrivileges {
public:
    WithoutPrivileges() { Set(0); }
    ~WithoutPrivileges() { Set(CAP_TO_MASK(CAP_DAC_OVERRIDE) | CAP_TO_MASK(CAP_DAC_READ_SEARCH)); }
    WithoutPrivileges(const WithoutPrivileges&) = delete;
    WithoutPrivileges& operator=(const WithoutPrivileges&) = delete;

private:
    /// Leaves of the two capabilities those in `kept` in effect, as far as they are permitted.
    static void Set(unsigned kept) {
        constexpr unsigned both = CAP_TO_MASK(CAP_DAC_OVERRIDE) | CAP_TO_MASK(CAP_DAC_READ_SEARCH);
        __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
        syscall(SYS_capget, &header, data);
        data[0].effective = (data[0].effective & ~both) | (data[0].permitted & kept);
        syscall(SYS_capset, &header, data);
    }
};

class SigningTest : public ScriptedToken {
protected:
    std::string CertB64() const { return Encode(Read("user.der")); }
    std::string DataGivenToSign() const { return Calls("C_Sign").back()["in"]["data"]; }
    QMNativeMessagingHost host;
};

TEST_F(SigningTest, DataForAnUnknownKeyIsNotEvenLogged) {
    AppLogLevel = DEBUG;
    LogIn();
    EXPECT_EQ(host.SignData("unknown", Bytes("text"), "SHA256").text, "Private Key NOT Found");
    EXPECT_NE(Log().find(" Trying to Get Private Key for CKA_ID: unknown\n"), std::string::npos);
    EXPECT_EQ(Log().find("Sign Data Method:"), std::string::npos);
}

TEST_F(SigningTest, DataIsLoggedInHexBehindItsLabelWithoutABlank) {
    AppLogLevel = DEBUG;
    LogIn();
    EXPECT_TRUE(host.SignData("01", Bytes("abc"), "SHA256").success);
    EXPECT_NE(Log().find(" Sign Data Method:616263\n"), std::string::npos);
}

TEST_F(SigningTest, TheDigestInfoHasNoNullParameters) {
    LogIn();
    AppLogLevel = DEBUG;
    const std::string digest(32, '\x5a');
    const OperationResult signature = host.SignHash("01", Bytes(Encode(digest)), "SHA256");
    EXPECT_TRUE(signature.success);
    std::string expected = "302f300b0609608648016503040201"
                           "0420";
    for (int i = 0; i < 32; ++i)
        expected += "5a";
    EXPECT_EQ(DataGivenToSign(), expected);
    EXPECT_NE(Log().find(" SignHash() RSA Signature: " + signature.text + "\n"), std::string::npos);
    EXPECT_EQ(Calls("C_SignInit").back()["in"]["mechanism"], 1);
}

TEST_F(SigningTest, AnUnsupportedHashIsThrownAfterTheKeyLookupAndBeforeTheTokenSigns) {
    LogIn();
    EXPECT_THROW(host.SignHash("01", Bytes("AAAA"), "MD5"), std::runtime_error);
    EXPECT_EQ(Calls("C_FindObjectsInit").size(), 1U);
    EXPECT_TRUE(Calls("C_SignInit").empty());
}

TEST_F(SigningTest, NoSignatureOverAHashIsReportedInTheSystemsOwnWords) {
    script["faults"] = {{{"call", "C_Sign"}, {"rv", CKR_FUNCTION_FAILED}}};
    LogIn();
    const OperationResult signature = host.SignHash("01", Bytes("AAAA"), "SHA256");
    EXPECT_FALSE(signature.success);
    EXPECT_EQ(signature.text, "Empty Response form method TokenSignHash()");
    EXPECT_EQ(Log().find("Empty Response"), std::string::npos) << "it is logged at DEBUG alone";
    AppLogLevel = DEBUG;
    EXPECT_FALSE(host.SignHash("01", Bytes("AAAA"), "SHA256").success);
    EXPECT_NE(Log().find(" Empty Response form method TokenSignHash()\n"), std::string::npos);
}

TEST_F(SigningTest, APdfSignatureVerifiesOverItsDocument) {
    LogIn();
    const std::string document = "the bytes of a document";
    for (const auto& [name, algorithm] :
         {std::pair{"SHA256", EVP_sha256()}, {"SHA384", EVP_sha384()}, {"SHA512", EVP_sha512()}}) {
        const std::string digest = Digest(algorithm, document);
        ASSERT_EQ(digest.find('\0'), std::string::npos)
            << "choose a document whose " << name << " has no zero byte";
        const OperationResult pkcs7 = host.GenPkcs7Sign(Encode(digest), name, CertB64().c_str(), "01");
        ASSERT_TRUE(pkcs7.success) << pkcs7.text;
        EXPECT_TRUE(CmsVerifies(Decode(pkcs7.text), &document, nullptr)) << name;
    }
}

TEST_F(SigningTest, WhatAPdfSignatureSignsIsTheSetOfTwoAttributes) {
    LogIn();
    const OperationResult pkcs7 =
        host.GenPkcs7Sign(Encode(std::string(32, '\x11')), "SHA256", CertB64().c_str(), "01");
    ASSERT_TRUE(pkcs7.success) << pkcs7.text;
    EXPECT_EQ(DataGivenToSign().substr(0, 12), "314b30180609");
    EXPECT_EQ(Calls("C_Sign").back()["in"]["dataLength"], 77);
    std::string attributes;
    for (std::size_t i = 0; i < DataGivenToSign().size(); i += 2)
        attributes += static_cast<char>(std::stoi(DataGivenToSign().substr(i, 2), nullptr, 16));
    attributes[0] = '\xa0'; // as the SignerInfo carries it
    EXPECT_NE(Decode(pkcs7.text).find(attributes), std::string::npos);
}

TEST_F(SigningTest, ADigestWithAZeroByteIsSignedOnlyUpToIt) {
    LogIn();
    std::string digest(32, '\x11');
    digest[10] = '\0';
    EXPECT_TRUE(host.GenPkcs7Sign(Encode(digest), "SHA256", CertB64().c_str(), "01").success);
    EXPECT_EQ(Calls("C_Sign").back()["in"]["dataLength"], 77 - 22);
}

TEST_F(SigningTest, ACmsSignatureCarriesItsTextAndVerifies) {
    LogIn();
    for (const std::string text : {"abc", "{\"gstin\":\"29ABCDE1234F1Z5\"}", "\xE0\xA4\xA8\xE0\xA4\xAE"}) {
        const OperationResult cms = host.GenCMSSign(text, "SHA256", CertB64().c_str(), "01");
        ASSERT_TRUE(cms.success) << cms.text;
        std::string content;
        EXPECT_TRUE(CmsVerifies(Decode(cms.text), nullptr, &content));
        EXPECT_EQ(content, text);
    }
}

TEST_F(SigningTest, AnEmptyTextIsCarriedAsAnEmptyOctetStringAndZeroBytesAreSigned) {
    LogIn();
    const OperationResult cms = host.GenCMSSign("", "SHA256", CertB64().c_str(), "01");
    ASSERT_TRUE(cms.success) << cms.text;
    EXPECT_EQ(Calls("C_Sign").back()["in"]["dataLength"], 0);
    std::string content = "not empty";
    EXPECT_TRUE(CmsVerifies(Decode(cms.text), nullptr, &content));
    EXPECT_EQ(content, "");
}

TEST_F(SigningTest, OnlyTheDebugLevelKeepsACopyOfTheLatestStructure) {
    LogIn();
    host.GenCMSSign("first", "SHA256", CertB64().c_str(), "01");
    host.GenPkcs7Sign(Encode("digest"), "SHA256", CertB64().c_str(), "01");
    EXPECT_FALSE(std::filesystem::exists("CMSSign.txt"));
    EXPECT_FALSE(std::filesystem::exists("PKCS7Sign.txt"));

    AppLogLevel = DEBUG;
    host.GenCMSSign("an earlier and longer text", "SHA256", CertB64().c_str(), "01");
    const OperationResult cms = host.GenCMSSign("latest", "SHA256", CertB64().c_str(), "01");
    EXPECT_EQ(Read("CMSSign.txt"), cms.text);
    const OperationResult pkcs7 = host.GenPkcs7Sign(Encode("digest"), "SHA256", CertB64().c_str(), "01");
    EXPECT_EQ(Read("PKCS7Sign.txt"), pkcs7.text);
}

TEST_F(SigningTest, TheCopyReplacesAnEarlierOneAlsoInAFileThatCanOnlyBeWritten) {
    LogIn();
    AppLogLevel = DEBUG;
    for (const char* file : {"CMSSign.txt", "PKCS7Sign.txt"}) {
        Write(file, std::string(100'000, 'x'));
        std::filesystem::permissions(file, std::filesystem::perms::owner_write);
    }
    const WithoutPrivileges others; // root may read everything
    const OperationResult cms = host.GenCMSSign("text", "SHA256", CertB64().c_str(), "01");
    const OperationResult pkcs7 = host.GenPkcs7Sign(Encode("digest"), "SHA256", CertB64().c_str(), "01");
    EXPECT_EQ(std::filesystem::file_size("CMSSign.txt"), cms.text.size());
    EXPECT_EQ(std::filesystem::file_size("PKCS7Sign.txt"), pkcs7.text.size());
}

TEST_F(SigningTest, AKeyLookupThatFailsComesThroughTheBuildersUnchanged) {
    LogIn();
    EXPECT_EQ(host.GenCMSSign("text", "SHA256", CertB64().c_str(), "none").text, "Private Key NOT Found");
    EXPECT_EQ(host.GenPkcs7Sign("AAAA", "SHA256", CertB64().c_str(), "none").text,
              ""); // the search was left open
}

TEST_F(SigningTest, ACertificateThatDoesNotParseStillGivesAStructure) {
    LogIn();
    const OperationResult cms = host.GenCMSSign("text", "SHA256", "bm8gY2VydGlmaWNhdGU=", "01");
    EXPECT_TRUE(cms.success) << cms.text;
    EXPECT_EQ(Decode(cms.text).front(), '\x30');
}

TEST_F(SigningTest, TheBuildersLeaveAnUnsupportedHashToTheirCaller) {
    LogIn();
    AppLogLevel = DEBUG;
    std::filesystem::remove("QMSignerExtHostLog.txt");
    EXPECT_THROW(host.GenCMSSign("text", "MD5", CertB64().c_str(), "01"), std::runtime_error);
    EXPECT_THROW(host.GenPkcs7Sign("AAAA", "MD5", CertB64().c_str(), "01"), std::runtime_error);
    EXPECT_EQ(Log(), "") << "nothing is entered";
}

TEST_F(SigningTest, APdfSignatureFindsItsCertificateByThumbprintToTheLetter) {
    LogIn();
    tokenManager.BuildTokenCertList();
    const std::string thumbprint = tokenManager.TokenCertList.ObjectAt(0)->stringOf("CertThumbPrint");
    EXPECT_TRUE(host.GetPdfSignature(Encode("digest"), thumbprint.c_str(), "SHA256").success);
    EXPECT_EQ(host.GetPdfSignature(Encode("digest"), "none", "SHA256").text,
              "Error  in GetPDFSignature(): Certificate not found in the token's certificate list: none");
    EXPECT_EQ(host.GetPdfSignature(Encode("digest"), thumbprint.c_str(), "MD5").text,
              "Error  in GetPDFSignature(): Unsupported hash algorithm");
}

TEST_F(SigningTest, TheBuildersLogTheirBeginAndTheIssuerAsXml) {
    LogIn();
    AppLogLevel = DEBUG;
    for (const std::string begin : {"Entered GenCMSSign", "Entered GenPkcs7Sign"}) {
        std::filesystem::remove("QMSignerExtHostLog.txt");
        if (begin == "Entered GenCMSSign")
            host.GenCMSSign("text", "SHA256", CertB64().c_str(), "01");
        else
            host.GenPkcs7Sign("AAAA", "SHA256", CertB64().c_str(), "01");
        const std::string issuer =
            "<sequence><set><sequence><oid>2.5.4.6</oid><printable>IN</printable></sequence></set>"
            "<set><sequence><oid>2.5.4.10</oid><utf8>Example</utf8></sequence></set>"
            "<set><sequence><oid>2.5.4.3</oid><utf8>Asha Rao</utf8></sequence></set></sequence>";
        const std::size_t at = Log().find(" " + begin + "\n");
        EXPECT_NE(at, std::string::npos) << Log();
        EXPECT_GT(Log().find(" " + issuer + "\n"), at) << Log();
        EXPECT_NE(Log().find(" " + issuer + "\n"), std::string::npos) << Log();
    }
}

TEST_F(SigningTest, XmlIsNeverSigned) {
    AppLogLevel = DEBUG;
    EXPECT_EQ(host.SignXML("<a/>", "").text, "Not Implimented.");
    EXPECT_FALSE(host.SignXML("<a/>", "").success);
    EXPECT_EQ(Log(), "");
}

} // namespace
