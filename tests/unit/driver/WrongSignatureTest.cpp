#include "DriverFixture.h"

#include <algorithm>
#include <array>

// No signature leaves the driver that the certificate's key does not verify.

namespace {

class WrongSignatureTest : public DriverFixture, public testing::WithParamInterface<const char*> {
protected:
    /// What the buffer for a signature holds behind the call; it was full of 0xAA.
    std::string SignInto(CK_MECHANISM_TYPE mechanism) {
        CK_MECHANISM how{mechanism, nullptr, 0};
        EXPECT_EQ(Driver().SignInit(session, &how, key), CKR_OK);
        std::string content = "a text to sign";
        std::string buffer(1024, '\xaa');
        CK_ULONG length = buffer.size();
        answer = Driver().Sign(session, reinterpret_cast<CK_BYTE*>(content.data()), content.size(),
                               reinterpret_cast<CK_BYTE*>(buffer.data()), &length);
        return buffer;
    }
};

} // namespace

TEST_P(WrongSignatureTest, IsADeviceErrorAndLeavesNothingInTheBufferAndIsLoggedByName) {
    AddFake(GetParam());
    GetReadyToSign();
    for (const CK_MECHANISM_TYPE mechanism :
         {CKM_RSA_PKCS, CKM_SHA256_RSA_PKCS, CKM_SHA384_RSA_PKCS, CKM_SHA512_RSA_PKCS}) {
        const std::string left = SignInto(mechanism);
        EXPECT_EQ(answer, CKR_DEVICE_ERROR);
        EXPECT_TRUE(std::all_of(left.begin(), left.end(), [](char byte) { return byte == 0; }));
    }
    EXPECT_THAT(Log(), testing::HasSubstr(std::string("a signature of the module ") + GetParam() +
                                          " with the token \"Fake Token\" (serial number 0001) does not "
                                          "verify with its certificate, id ABCD01,"));
}

INSTANTIATE_TEST_SUITE_P(Modules, WrongSignatureTest,
                         testing::Values("signs-constant-bytes", "signs-with-another-key",
                                         "signs-other-data"),
                         [](const auto& fake) {
                             std::string name = fake.param;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });
