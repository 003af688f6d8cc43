#include "QMTools.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

TEST(GetHashOid, TheFourNamesHaveTheirIdentifiers) {
    EXPECT_STREQ(QMTools::GetHashOid("SHA1"), "1.3.14.3.2.26");
    EXPECT_STREQ(QMTools::GetHashOid("SHA256"), "2.16.840.1.101.3.4.2.1");
    EXPECT_STREQ(QMTools::GetHashOid("SHA384"), "2.16.840.1.101.3.4.2.2");
    EXPECT_STREQ(QMTools::GetHashOid("SHA512"), "2.16.840.1.101.3.4.2.3");
}

TEST(GetHashOid, AnyOtherSpellingIsUnsupported) {
    for (const char* name : {"sha256", "SHA-256", "", "SHA224", "SHA256 "}) {
        try {
            QMTools::GetHashOid(name);
            FAIL() << name;
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(), "Unsupported hash algorithm");
        }
    }
}

} // namespace
