#include "QMNativeMessagingHost.h"
#include "ScriptedToken.h"

#include "ck/CkByteData.h"
#include "ck/CkJsonObject.h"

#include "support/Verify.h"

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

using testing::HasSubstr;
using testing::Not;

CkByteData Bytes(const std::string& bytes) {
    CkByteData data;
    data.appendStr(bytes);
    return data;
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
    OperationResult Pdf(const std::string& digest, const char* hash = "SHA256", const char* id = "01") {
        return host.GenPkcs7Sign(ToBase64(digest), hash, ToBase64(ReadFile("user.der")).c_str(), id);
    }
    OperationResult Cms(const std::string& text, const char* hash = "SHA256", const char* id = "01") {
        return host.GenCMSSign(text, hash, ToBase64(ReadFile("user.der")).c_str(), id);
    }
    std::string DataGivenToSign() const {
        return FromHex(Calls("C_Sign").back()["in"]["data"].get<std::string>());
    }
    QMNativeMessagingHost host;
};

TEST_F(SigningTest, DataForAnUnknownKeyIsNotEvenLogged) {
    AppLogLevel = DEBUG;
    LogIn();
    EXPECT_EQ(host.SignData("unknown", Bytes("text"), "SHA256").text, "Private Key NOT Found");
    EXPECT_TRUE(HasLogged("Trying to Get Private Key for CKA_ID: unknown")) << Log();
    EXPECT_THAT(Log(), Not(HasSubstr("Sign Data Method:")));
}

TEST_F(SigningTest, DataIsLoggedInHexBehindItsLabelWithoutABlank) {
    AppLogLevel = DEBUG;
    LogIn();
    EXPECT_TRUE(host.SignData("01", Bytes("abc"), "SHA256").success);
    EXPECT_TRUE(HasLogged("Sign Data Method:616263")) << Log();
}

TEST_F(SigningTest, TheDigestInfoHasNoNullParameters) {
    LogIn();
    AppLogLevel = DEBUG;
    const std::string digest(32, '\x5a');
    const OperationResult signature = host.SignHash("01", Bytes(ToBase64(digest)), "SHA256");
    EXPECT_TRUE(signature.success);
    EXPECT_EQ(DataGivenToSign(), FromHex("302f300b0609608648016503040201 0420") + digest);
    EXPECT_TRUE(HasLogged("SignHash() RSA Signature: " + signature.text + "")) << Log();
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
    EXPECT_THAT(Log(), Not(HasSubstr("Empty Response"))) << "it is logged at DEBUG alone";
    AppLogLevel = DEBUG;
    EXPECT_FALSE(host.SignHash("01", Bytes("AAAA"), "SHA256").success);
    EXPECT_TRUE(HasLogged("Empty Response form method TokenSignHash()")) << Log();
}

TEST_F(SigningTest, APdfSignatureVerifiesOverItsDocument) {
    LogIn();
    const std::string document = "the bytes of a document";
    for (const char* name : {"SHA256", "SHA384", "SHA512"}) {
        const std::string digest = DigestOf(name, document);
        ASSERT_EQ(digest.find('\0'), std::string::npos)
            << "choose a document whose " << name << " has no zero byte";
        const OperationResult pkcs7 = Pdf(digest, name);
        ASSERT_TRUE(pkcs7.success) << pkcs7.text;
        EXPECT_TRUE(VerifiedContent(FromBase64(pkcs7.text), &document)) << name;
    }
}

TEST_F(SigningTest, WhatAPdfSignatureSignsIsTheSetOfTwoAttributes) {
    LogIn();
    const OperationResult pkcs7 = Pdf(std::string(32, '\x11'));
    ASSERT_TRUE(pkcs7.success) << pkcs7.text;
    std::string attributes = DataGivenToSign();
    EXPECT_TRUE(attributes.starts_with(FromHex("314b30180609")));
    EXPECT_EQ(Calls("C_Sign").back()["in"]["dataLength"], 77);
    attributes[0] = '\xa0'; // as the SignerInfo carries it
    EXPECT_THAT(FromBase64(pkcs7.text), HasSubstr(attributes));
}

TEST_F(SigningTest, ADigestWithAZeroByteIsSignedOnlyUpToIt) {
    LogIn();
    std::string digest(32, '\x11');
    digest[10] = '\0';
    EXPECT_TRUE(Pdf(digest).success);
    EXPECT_EQ(Calls("C_Sign").back()["in"]["dataLength"], 77 - 22);
}

TEST_F(SigningTest, ACmsSignatureCarriesItsTextAndVerifies) {
    LogIn();
    for (const std::string text : {"abc", "{\"gstin\":\"29ABCDE1234F1Z5\"}", "\xE0\xA4\xA8\xE0\xA4\xAE"}) {
        const OperationResult cms = Cms(text);
        ASSERT_TRUE(cms.success) << cms.text;
        EXPECT_EQ(VerifiedContent(FromBase64(cms.text)), text);
    }
}

TEST_F(SigningTest, AnEmptyTextIsCarriedAsAnEmptyOctetStringAndZeroBytesAreSigned) {
    LogIn();
    const OperationResult cms = Cms("");
    ASSERT_TRUE(cms.success) << cms.text;
    EXPECT_EQ(Calls("C_Sign").back()["in"]["dataLength"], 0);
    EXPECT_EQ(VerifiedContent(FromBase64(cms.text)), "");
}

TEST_F(SigningTest, OnlyTheDebugLevelKeepsACopyOfTheLatestStructure) {
    LogIn();
    Cms("first");
    Pdf("digest");
    EXPECT_FALSE(std::filesystem::exists("CMSSign.txt"));
    EXPECT_FALSE(std::filesystem::exists("PKCS7Sign.txt"));

    AppLogLevel = DEBUG;
    Cms("an earlier and longer text");
    const OperationResult cms = Cms("latest");
    EXPECT_EQ(ReadFile("CMSSign.txt"), cms.text);
    const OperationResult pkcs7 = Pdf("digest");
    EXPECT_EQ(ReadFile("PKCS7Sign.txt"), pkcs7.text);
}

TEST_F(SigningTest, TheCopyReplacesAnEarlierOneAlsoInAFileThatCanOnlyBeWritten) {
    LogIn();
    AppLogLevel = DEBUG;
    for (const char* file : {"CMSSign.txt", "PKCS7Sign.txt"}) {
        WriteFile(file, std::string(100'000, 'x'));
        std::filesystem::permissions(file, std::filesystem::perms::owner_write);
    }
    const WithoutPrivileges others; // root may read everything
    const OperationResult cms = Cms("text");
    const OperationResult pkcs7 = Pdf("digest");
    EXPECT_EQ(std::filesystem::file_size("CMSSign.txt"), cms.text.size());
    EXPECT_EQ(std::filesystem::file_size("PKCS7Sign.txt"), pkcs7.text.size());
}

TEST_F(SigningTest, AKeyLookupThatFailsComesThroughTheBuildersUnchanged) {
    LogIn();
    EXPECT_EQ(Cms("text", "SHA256", "none").text, "Private Key NOT Found");
    EXPECT_EQ(Pdf("digest", "SHA256", "none").text, ""); // the search was left open
}

TEST_F(SigningTest, ACertificateThatDoesNotParseStillGivesAStructure) {
    LogIn();
    const OperationResult cms = host.GenCMSSign("text", "SHA256", "bm8gY2VydGlmaWNhdGU=", "01");
    EXPECT_TRUE(cms.success) << cms.text;
    EXPECT_EQ(FromBase64(cms.text).front(), '\x30');
}

TEST_F(SigningTest, TheBuildersLeaveAnUnsupportedHashToTheirCaller) {
    LogIn();
    AppLogLevel = DEBUG;
    std::filesystem::remove("QMSignerExtHostLog.txt");
    EXPECT_THROW(Cms("text", "MD5"), std::runtime_error);
    EXPECT_THROW(Pdf("digest", "MD5"), std::runtime_error);
    EXPECT_EQ(Log(), "") << "nothing is entered";
}

TEST_F(SigningTest, APdfSignatureFindsItsCertificateByThumbprintToTheLetter) {
    LogIn();
    tokenManager.BuildTokenCertList();
    const std::string thumbprint = tokenManager.TokenCertList.ObjectAt(0)->stringOf("CertThumbPrint");
    EXPECT_TRUE(host.GetPdfSignature(ToBase64("digest"), thumbprint.c_str(), "SHA256").success);
    EXPECT_EQ(host.GetPdfSignature(ToBase64("digest"), "none", "SHA256").text,
              "Error  in GetPDFSignature(): Certificate not found in the token's certificate list: none");
    EXPECT_EQ(host.GetPdfSignature(ToBase64("digest"), thumbprint.c_str(), "MD5").text,
              "Error  in GetPDFSignature(): Unsupported hash algorithm");
}

TEST_F(SigningTest, TheBuildersLogTheirBeginAndTheIssuerAsXml) {
    LogIn();
    AppLogLevel = DEBUG;
    for (const std::string begin : {"Entered GenCMSSign", "Entered GenPkcs7Sign"}) {
        std::filesystem::remove("QMSignerExtHostLog.txt");
        if (begin == "Entered GenCMSSign")
            Cms("text");
        else
            Pdf("digest");
        const std::string issuer =
            "<sequence><set><sequence><oid>2.5.4.6</oid><printable>IN</printable></sequence></set>"
            "<set><sequence><oid>2.5.4.10</oid><utf8>Example</utf8></sequence></set>"
            "<set><sequence><oid>2.5.4.3</oid><utf8>Asha Rao</utf8></sequence></set></sequence>";
        const std::size_t at = Log().find(" " + begin + "\n");
        EXPECT_NE(at, std::string::npos) << Log();
        EXPECT_GT(Log().find(" " + issuer + "\n"), at) << Log();
        EXPECT_TRUE(HasLogged("" + issuer + "")) << Log();
    }
}

TEST_F(SigningTest, XmlIsNeverSigned) {
    AppLogLevel = DEBUG;
    EXPECT_EQ(host.SignXML("<a/>", "").text, "Not Implimented.");
    EXPECT_FALSE(host.SignXML("<a/>", "").success);
    EXPECT_EQ(Log(), "");
}

} // namespace
