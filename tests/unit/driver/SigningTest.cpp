#include "DriverFixture.h"
#include "SoftToken.h"
#include "support/Bytes.h"

#include <array>

namespace {

struct HashCase {
    CK_MECHANISM_TYPE mechanism;
    const char* hash;
};

constexpr std::array kHashes = {HashCase{CKM_SHA256_RSA_PKCS, "SHA256"},
                                HashCase{CKM_SHA384_RSA_PKCS, "SHA384"},
                                HashCase{CKM_SHA512_RSA_PKCS, "SHA512"}};

/// Signed attributes as the host builds them, for a SHA-256 digest of this byte.
std::string SignedAttributes(char digestByte) { return SignedAttributesOf(std::string(32, digestByte)); }

/// A DigestInfo as the host builds it, without parameters.
std::string DigestInfo(char digestByte) {
    return FromHex("302F 300B 0609608648016503040201 0420") + std::string(32, digestByte);
}

class SigningTest : public DriverFixture {
protected:
    void ExpectAllHashesVerify(const std::string& data) {
        for (const HashCase& hash : kHashes)
            ExpectSigns(data, hash.mechanism, hash.hash);
    }

    void ExpectLengthLeavesItUnderWay() {
        CK_MECHANISM mechanism{CKM_SHA256_RSA_PKCS, nullptr, 0};
        ASSERT_EQ(Driver().SignInit(session, &mechanism, key), CKR_OK);
        std::string data = "data";
        auto* bytes = reinterpret_cast<CK_BYTE*>(data.data());
        CK_ULONG length = 0;
        EXPECT_EQ(Driver().Sign(session, bytes, data.size(), nullptr, &length), CKR_OK);
        EXPECT_EQ(length, 256U);
        std::string signature(256, '\0');
        auto* room = reinterpret_cast<CK_BYTE*>(signature.data());
        length = 255;
        EXPECT_EQ(Driver().Sign(session, bytes, data.size(), room, &length), CKR_BUFFER_TOO_SMALL);
        EXPECT_EQ(length, 256U);
        EXPECT_EQ(Driver().Sign(session, bytes, data.size(), room, &length), CKR_OK);
        EXPECT_TRUE(Verifies(certificates[0].der, "SHA256", data, signature));
        EXPECT_EQ(Driver().Sign(session, bytes, data.size(), room, &length), CKR_OPERATION_NOT_INITIALIZED);
    }

    /// Refused with CKR_DATA_INVALID, and the next signature is right.
    void ExpectRefused(CK_MECHANISM_TYPE mechanism, const std::string& data) {
        EXPECT_EQ(AnswerToSign(data, mechanism), CKR_DATA_INVALID);
        ExpectSigns("next");
    }
};

} // namespace

TEST_F(SigningTest, HashAndSign_ByTheToken) {
    GetFakeReadyToSign("works");
    ExpectAllHashesVerify("a text to sign");
}

TEST_F(SigningTest, HashAndSign_HereWhenTheTokenLacksIt) {
    GetFakeReadyToSign("lacks-hash-mechanisms");
    ExpectAllHashesVerify("a text to sign");
    ExpectAllHashesVerify("");
    ExpectAllHashesVerify(std::string(1'000'000, 'x'));
}

TEST_F(SigningTest, HashAndSign_HereWhenTheTokenRefusesWhatItLists) {
    GetFakeReadyToSign("lists-a-mechanism-it-refuses");
    ExpectAllHashesVerify("a text to sign");
}

TEST_F(SigningTest, HashAndSign_WithSoftHsm) {
    SoftToken(home).Store(std::string("\0\xff\x10", 3));
    GetReadyToSign();
    ExpectAllHashesVerify("a text to sign");
}

TEST_F(SigningTest, RsaPkcs_GoesThroughAsItIs) {
    SoftToken(home).Store("\x01");
    GetReadyToSign();
    for (const std::string& block :
         {DigestInfo('\x55'), std::string("0A of no DigestInfo"), std::string("x")}) {
        const std::optional<std::string> signature = Sign(block, CKM_RSA_PKCS);
        ASSERT_TRUE(signature) << std::hex << answer;
        EXPECT_EQ(RecoverSigned(certificates[0].der, *signature), block);
    }
}

TEST_F(SigningTest, TextsThatBeginLikeDer_AreSigned) {
    GetFakeReadyToSign("works");
    for (const char* text : {"0A", "1K", "0A1B2C3D", "1Kbcdef", "0", "1", "1K0\x18", "\x31"}) {
        ExpectAllHashesVerify(text);
        const std::optional<std::string> signature = Sign(text, CKM_RSA_PKCS);
        ASSERT_TRUE(signature) << text;
        EXPECT_EQ(RecoverSigned(certificates[0].der, *signature), text);
    }
}

TEST_F(SigningTest, WholeSignedAttributes_AreSigned) {
    GetFakeReadyToSign("works");
    ExpectAllHashesVerify(SignedAttributes('\x55'));
}

TEST_F(SigningTest, SignedAttributesCutAtAZeroByte_AreRefused) {
    GetFakeReadyToSign("works");
    const std::string whole = SignedAttributes('\x55');
    for (const std::size_t length : {whole.size() - 1, whole.size() - 32, std::size_t{15}})
        for (const HashCase& hash : kHashes)
            ExpectRefused(hash.mechanism, whole.substr(0, length));
}

TEST_F(SigningTest, SignedAttributesCutAtAZeroByte_AreRefusedWhenHashedHere) {
    GetFakeReadyToSign("lacks-hash-mechanisms");
    ExpectRefused(CKM_SHA256_RSA_PKCS, SignedAttributes('\x55').substr(0, 60));
}

TEST_F(SigningTest, ADigestInfoCutAtAZeroByte_IsRefused) {
    SoftToken(home).Store("\x01");
    GetReadyToSign();
    for (const std::size_t length : {48U, 17U, 16U, 15U})
        ExpectRefused(CKM_RSA_PKCS, DigestInfo('\x55').substr(0, length));
}

TEST_F(SigningTest, TheLengthAskedFor_LeavesTheSignatureUnderWay) {
    GetFakeReadyToSign("works");
    ExpectLengthLeavesItUnderWay();
}

TEST_F(SigningTest, TheLengthAskedFor_LeavesTheSignatureUnderWayWhenHashedHere) {
    GetFakeReadyToSign("lacks-hash-mechanisms");
    ExpectLengthLeavesItUnderWay();
}

TEST_F(SigningTest, SignFinalWithoutParts_SignsNothing) {
    GetFakeReadyToSign("lacks-hash-mechanisms");
    std::string signature(256, '\0');
    auto* room = reinterpret_cast<CK_BYTE*>(signature.data());
    CK_ULONG length = signature.size();
    EXPECT_EQ(Driver().SignFinal(session, room, &length), CKR_OPERATION_NOT_INITIALIZED);
    CK_MECHANISM mechanism{CKM_SHA512_RSA_PKCS, nullptr, 0};
    ASSERT_EQ(Driver().SignInit(session, &mechanism, key), CKR_OK);
    EXPECT_EQ(Driver().SignFinal(session, room, &length), CKR_OK);
    EXPECT_TRUE(Verifies(certificates[0].der, "SHA512", "", signature));
}

TEST_F(SigningTest, WhatIsNoKey_IsRefused) {
    GetFakeReadyToSign("works");
    EXPECT_FALSE(Sign(CKM_SHA256_RSA_PKCS, 4711, "text"));
    EXPECT_EQ(answer, CKR_KEY_HANDLE_INVALID);
    EXPECT_FALSE(Sign(CKM_SHA256_RSA_PKCS, certificates[0].handle, "text"));
    EXPECT_EQ(answer, CKR_KEY_HANDLE_INVALID);
}

TEST_F(SigningTest, AMechanismThatNoOneHas_IsRefused) {
    GetFakeReadyToSign("works");
    EXPECT_EQ(AnswerToSign("text", CKM_DES3_MAC), CKR_MECHANISM_INVALID);
}

TEST_F(SigningTest, ASecondSignInit_IsRefused) {
    GetFakeReadyToSign("works");
    CK_MECHANISM mechanism{CKM_SHA256_RSA_PKCS, nullptr, 0};
    EXPECT_EQ(Driver().SignInit(session, &mechanism, key), CKR_OK);
    EXPECT_EQ(Driver().SignInit(session, &mechanism, key), CKR_OPERATION_ACTIVE);
}

TEST_F(SigningTest, AHundredSignatures_AreAllRight) {
    SoftToken(home).Store("\x01");
    GetReadyToSign();
    for (int i = 0; i < 100; ++i) {
        const std::string data = "return number " + std::to_string(i);
        ExpectSigns(data);
    }
}
