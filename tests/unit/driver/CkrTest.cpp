#include "Ckr.h"

#include <gtest/gtest.h>

#include <fstream>
#include <regex>

// The driver's names of PKCS#11's answers against the standard's header.

TEST(Ckr, EachAnswerOfTheHeader_HasItsName) {
    std::ifstream header(QM_PKCS11_HEADER);
    const std::regex definition(R"(#define\s+(CKR_\w+)\s+\((0x[0-9a-fA-F]+|\d+)UL\))");
    unsigned found = 0;
    for (std::string line; std::getline(header, line);) {
        std::smatch parts;
        if (!std::regex_search(line, parts, definition))
            continue;
        ++found;
        const CK_RV code = std::stoul(parts[2], nullptr, 0);
        EXPECT_TRUE(tokendriver::DescribeAnswer(code).ends_with("(" + parts[1].str() + ")"))
            << parts[1] << ": " << tokendriver::DescribeAnswer(code);
    }
    EXPECT_GT(found, 80U);
}

TEST(Ckr, AnAnswerThatAnOlderHeaderLacks_HasItsName) {
    EXPECT_TRUE(tokendriver::DescribeAnswer(0x202).ends_with("(CKR_OPERATION_CANCEL_FAILED)"));
}

TEST(Ckr, AMakersOwnAnswer_IsGivenInHex) {
    EXPECT_TRUE(tokendriver::DescribeAnswer(CKR_VENDOR_DEFINED | 1).ends_with("(0x80000001)"));
}
