#include "DriverFixture.h"
#include "SoftToken.h"

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
std::string SignedAttributes(char digestByte) {
    return "\x31\x4b\x30\x18\x06\x09\x2a\x86\x48\x86\xf7\x0d\x01\x09\x03\x31\x0b\x06\x09\x2a\x86\x48\x86\xf7"
           "\x0d\x01"
           "\x07\x01\x30\x2f\x06\x09\x2a\x86\x48\x86\xf7\x0d\x01\x09\x04\x31\x22\x04\x20" +
           std::string(32, digestByte);
}

/// A DigestInfo as the host builds it, without parameters.
std::string DigestInfo(char digestByte) {
    return "\x30\x2f\x30\x0b\x06\x09\x60\x86\x48\x01\x65\x03\x04\x02\x01\x04\x20" +
           std::string(32, digestByte);
}

class SigningTest : public DriverFixture {
protected:
    void ExpectAllHashesVerify(CK_OBJECT_HANDLE key, const std::string& data) {
        for (const HashCase& hash : kHashes) {
            const std::optional<std::string> signature = Sign(hash.mechanism, key, data);
            ASSERT_TRUE(signature) << hash.hash << " answers " << std::hex << answer;
            EXPECT_TRUE(Verifies(certificates[0].der, hash.hash, data, *signature)) << hash.hash;
        }
    }

    void ExpectLengthLeavesItUnderWay(CK_OBJECT_HANDLE key) {
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
    void ExpectRefused(CK_MECHANISM_TYPE mechanism, CK_OBJECT_HANDLE key, const std::string& data) {
        EXPECT_FALSE(Sign(mechanism, key, data));
        EXPECT_EQ(answer, CKR_DATA_INVALID);
        const std::optional<std::string> next = Sign(CKM_SHA256_RSA_PKCS, key, "next");
        ASSERT_TRUE(next) << std::hex << answer;
        EXPECT_TRUE(Verifies(certificates[0].der, "SHA256", "next", *next));
    }
};

} // namespace

TEST_F(SigningTest, HashAndSign_ByTheToken) {
    AddFake("works");
    ExpectAllHashesVerify(GetReadyToSign(), "a text to sign");
}

TEST_F(SigningTest, HashAndSign_HereWhenTheTokenLacksIt) {
    AddFake("lacks-hash-mechanisms");
    const CK_OBJECT_HANDLE key = GetReadyToSign();
    ExpectAllHashesVerify(key, "a text to sign");
    ExpectAllHashesVerify(key, "");
    ExpectAllHashesVerify(key, std::string(1'000'000, 'x'));
}

TEST_F(SigningTest, HashAndSign_HereWhenTheTokenRefusesWhatItLists) {
    AddFake("lists-a-mechanism-it-refuses");
    ExpectAllHashesVerify(GetReadyToSign(), "a text to sign");
}

TEST_F(SigningTest, HashAndSign_WithSoftHsm) {
    SoftToken(home).Store({0x00, 0xff, 0x10});
    ExpectAllHashesVerify(GetReadyToSign(), "a text to sign");
}

TEST_F(SigningTest, RsaPkcs_GoesThroughAsItIs) {
    SoftToken(home).Store({0x01});
    const CK_OBJECT_HANDLE key = GetReadyToSign();
    for (const std::string& block :
         {DigestInfo('\x55'), std::string("0A of no DigestInfo"), std::string("x")}) {
        const std::optional<std::string> signature = Sign(CKM_RSA_PKCS, key, block);
        ASSERT_TRUE(signature) << std::hex << answer;
        EXPECT_EQ(RecoverSigned(certificates[0].der, *signature), block);
    }
}

TEST_F(SigningTest, TextsThatBeginLikeDer_AreSigned) {
    AddFake("works");
    const CK_OBJECT_HANDLE key = GetReadyToSign();
    for (const char* text : {"0A", "1K", "0A1B2C3D", "1Kbcdef", "0", "1", "1K0\x18", "\x31"}) {
        ExpectAllHashesVerify(key, text);
        const std::optional<std::string> signature = Sign(CKM_RSA_PKCS, key, text);
        ASSERT_TRUE(signature) << text;
        EXPECT_EQ(RecoverSigned(certificates[0].der, *signature), text);
    }
}

TEST_F(SigningTest, WholeSignedAttributes_AreSigned) {
    AddFake("works");
    ExpectAllHashesVerify(GetReadyToSign(), SignedAttributes('\x55'));
}

TEST_F(SigningTest, SignedAttributesCutAtAZeroByte_AreRefused) {
    AddFake("works");
    const CK_OBJECT_HANDLE key = GetReadyToSign();
    const std::string whole = SignedAttributes('\x55');
    for (const std::size_t length : {whole.size() - 1, whole.size() - 32, std::size_t{15}})
        for (const HashCase& hash : kHashes)
            ExpectRefused(hash.mechanism, key, whole.substr(0, length));
}

TEST_F(SigningTest, SignedAttributesCutAtAZeroByte_AreRefusedWhenHashedHere) {
    AddFake("lacks-hash-mechanisms");
    ExpectRefused(CKM_SHA256_RSA_PKCS, GetReadyToSign(), SignedAttributes('\x55').substr(0, 60));
}

TEST_F(SigningTest, ADigestInfoCutAtAZeroByte_IsRefused) {
    SoftToken(home).Store({0x01});
    const CK_OBJECT_HANDLE key = GetReadyToSign();
    for (const std::size_t length : {48U, 17U, 16U, 15U})
        ExpectRefused(CKM_RSA_PKCS, key, DigestInfo('\x55').substr(0, length));
}

TEST_F(SigningTest, TheLengthAskedFor_LeavesTheSignatureUnderWay) {
    AddFake("works");
    ExpectLengthLeavesItUnderWay(GetReadyToSign());
}

TEST_F(SigningTest, TheLengthAskedFor_LeavesTheSignatureUnderWayWhenHashedHere) {
    AddFake("lacks-hash-mechanisms");
    ExpectLengthLeavesItUnderWay(GetReadyToSign());
}

TEST_F(SigningTest, SignFinalWithoutParts_SignsNothing) {
    AddFake("lacks-hash-mechanisms");
    const CK_OBJECT_HANDLE key = GetReadyToSign();
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
    AddFake("works");
    GetReadyToSign();
    EXPECT_FALSE(Sign(CKM_SHA256_RSA_PKCS, 4711, "text"));
    EXPECT_EQ(answer, CKR_KEY_HANDLE_INVALID);
    EXPECT_FALSE(Sign(CKM_SHA256_RSA_PKCS, certificates[0].handle, "text"));
    EXPECT_EQ(answer, CKR_KEY_HANDLE_INVALID);
}

TEST_F(SigningTest, AMechanismThatNoOneHas_IsRefused) {
    AddFake("works");
    const CK_OBJECT_HANDLE key = GetReadyToSign();
    EXPECT_FALSE(Sign(CKM_DES3_MAC, key, "text"));
    EXPECT_EQ(answer, CKR_MECHANISM_INVALID);
}

TEST_F(SigningTest, ASecondSignInit_IsRefused) {
    AddFake("works");
    const CK_OBJECT_HANDLE key = GetReadyToSign();
    CK_MECHANISM mechanism{CKM_SHA256_RSA_PKCS, nullptr, 0};
    EXPECT_EQ(Driver().SignInit(session, &mechanism, key), CKR_OK);
    EXPECT_EQ(Driver().SignInit(session, &mechanism, key), CKR_OPERATION_ACTIVE);
}

TEST_F(SigningTest, AHundredSignatures_AreAllRight) {
    SoftToken(home).Store({0x01});
    const CK_OBJECT_HANDLE key = GetReadyToSign();
    for (int i = 0; i < 100; ++i) {
        const std::string data = "return number " + std::to_string(i);
        const std::optional<std::string> signature = Sign(CKM_SHA256_RSA_PKCS, key, data);
        ASSERT_TRUE(signature);
        ASSERT_TRUE(Verifies(certificates[0].der, "SHA256", data, *signature));
    }
}
