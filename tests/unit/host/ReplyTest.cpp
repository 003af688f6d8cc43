#include "QMNativeMessagingHost.h"

#include <gtest/gtest.h>

namespace {

/// The frame that goes to standard output.
std::string FrameOf(const OperationResult& result, const std::string& nonce) {
    QMNativeMessagingHost host;
    testing::internal::CaptureStdout();
    host.ReturnResult(result, nonce);
    return testing::internal::GetCapturedStdout();
}

std::string Framed(const std::string& json) {
    return std::string({static_cast<char>(json.size()), '\0', '\0', '\0'}) + json;
}

TEST(ReturnResult, ASuccessIsStatusOneItsTextAndTheNonceAsAString) {
    EXPECT_EQ(FrameOf({true, "abc"}, "17"), Framed(R"({"status_cd":1,"result":"abc","nonce":"17"})"));
}

TEST(ReturnResult, AnEmptySuccessIsAnEmptyResult) {
    EXPECT_EQ(FrameOf({true, ""}, ""), Framed(R"({"status_cd":1,"result":"","nonce":""})"));
}

TEST(ReturnResult, AFailureIsStatusZeroAndThePrefixedText) {
    EXPECT_EQ(FrameOf({false, "Not Implimented."}, ""),
              Framed(R"({"status_cd":0,"result":"QMHost Error: Not Implimented.","nonce":""})"));
}

} // namespace
