#include "ck/CkSecureErase.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

namespace {

TEST(CkSecureErase, OverwritesTheMemory) {
    std::array<char, 4> secret = {'1', '2', '3', '4'};
    CkSecureErase(secret.data(), 3);
    EXPECT_EQ(secret, (std::array<char, 4>{0, 0, 0, '4'}));
}

TEST(CkSecureErase, NullWithoutSizeIsAllowed) { CkSecureErase(nullptr, 0); }

TEST(CkSecureErase, OverwritesTheWholeCapacityOfAString) {
    std::string secret(100, '7');
    secret.resize(5); // 95 digits stay behind the end
    const char* const memory = secret.data();
    CkSecureErase(secret);
    EXPECT_TRUE(secret.empty());
    ASSERT_EQ(secret.data(), memory);
    ASSERT_GE(secret.capacity(), 100U);
    EXPECT_TRUE(std::all_of(memory, memory + 100, [](char c) { return c == '\0'; }));
}

TEST(CkSecureErase, OverwritesAShortStringThatLivesInsideTheObject) {
    std::string secret = "1234";
    CkSecureErase(secret);
    EXPECT_TRUE(secret.empty());
    EXPECT_TRUE(std::all_of(secret.data(), secret.data() + 5, [](char c) { return c == '\0'; }));
}

} // namespace
