#include "QMNativeMessagingHost.h"
#include "support/Bytes.h"

#include <gtest/gtest.h>

namespace {

/// What goes to standard output.
std::string Replied(const OperationResult& result, const std::string& nonce) {
    QMNativeMessagingHost host;
    testing::internal::CaptureStdout();
    host.ReturnResult(result, nonce);
    return testing::internal::GetCapturedStdout();
}

TEST(ReturnResult, ASuccessIsStatusOneItsTextAndTheNonceAsAString) {
    EXPECT_EQ(Replied({true, "abc"}, "17"), FrameOf(R"({"status_cd":1,"result":"abc","nonce":"17"})"));
}

TEST(ReturnResult, AnEmptySuccessIsAnEmptyResult) {
    EXPECT_EQ(Replied({true, ""}, ""), FrameOf(R"({"status_cd":1,"result":"","nonce":""})"));
}

TEST(ReturnResult, AFailureIsStatusZeroAndThePrefixedText) {
    EXPECT_EQ(Replied({false, "Not Implimented."}, ""),
              FrameOf(R"({"status_cd":0,"result":"QMHost Error: Not Implimented.","nonce":""})"));
}

} // namespace
