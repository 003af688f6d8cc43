// What is taken as DER and what is not.

#include "ck/CkAsn.h"

#include "support/Bytes.h"

#include <gtest/gtest.h>

namespace {

bool Loads(const std::string& der) {
    CkAsn asn;
    const bool loaded = asn.LoadEncoded(ToBase64(der), "Base64");
    EXPECT_EQ(asn.getEncodedDer("Base64"), ToBase64(loaded ? der : FromHex("3000"))) << ToHex(der);
    return loaded;
}

bool LoadsHex(const char* hex) { return Loads(FromHex(hex)); }

TEST(CkAsnDer, NothingAtAll_IsRefused) { EXPECT_FALSE(Loads("")); }

TEST(CkAsnDer, AValueThatEndsTooSoon_IsRefused) {
    for (const char* der : {"30", "02", "02 01", "02 02 01", "30 03 02 01", "30 05 02 01 05",
                            "30 03 02 02 01", "1F", "9F 81", "04 81", "04 82 01", "30 81 80 05 00"})
        EXPECT_FALSE(LoadsHex(der)) << der;
}

TEST(CkAsnDer, WhatStandsBehindTheValue_IsRefused) {
    for (const char* der : {"05 00 00", "05 00 05 00", "30 00 30 00", "30 03 02 01 05 00"})
        EXPECT_FALSE(LoadsHex(der)) << der;
}

TEST(CkAsnDer, ALengthThatReachesBeyondTheParent_IsRefused) {
    EXPECT_FALSE(LoadsHex("30 04 04 03 41 42 43"));
    EXPECT_FALSE(LoadsHex("30 03 04 02 41 42"));
}

TEST(CkAsnDer, IndefiniteLengths_AreRefused) {
    EXPECT_FALSE(LoadsHex("30 80 00 00"));
    EXPECT_FALSE(LoadsHex("30 80 02 01 05 00 00"));
    EXPECT_FALSE(LoadsHex("30 04 30 80 00 00"));
}

TEST(CkAsnDer, TheTagOfEndOfContents_IsRefused) {
    EXPECT_FALSE(LoadsHex("00 00"));
    EXPECT_FALSE(LoadsHex("30 02 00 00"));
    EXPECT_FALSE(LoadsHex("20 00"));
}

TEST(CkAsnDer, ALengthInMoreOctetsThanItNeeds_IsRefused) {
    EXPECT_FALSE(LoadsHex("02 81 01 05"));
    EXPECT_FALSE(LoadsHex("02 82 00 01 05"));
    EXPECT_FALSE(Loads(FromHex("04 81 7F") + std::string(127, 'x')));
    EXPECT_FALSE(Loads(FromHex("04 82 00 FF") + std::string(255, 'x')));
}

TEST(CkAsnDer, ATagNumberInMoreOctetsThanItNeeds_IsRefused) {
    EXPECT_FALSE(LoadsHex("1F 05 00"));
    EXPECT_FALSE(LoadsHex("9F 1E 00"));
    EXPECT_FALSE(LoadsHex("9F 80 1F 00"));
    EXPECT_FALSE(LoadsHex("9F 80 81 00 00"));
}

TEST(CkAsnDer, ATagNumberAboveTheLimit_IsRefused) {
    EXPECT_TRUE(LoadsHex("9F 87 FF FF FF 7F 00")) << "2^31 - 1";
    EXPECT_FALSE(LoadsHex("9F 88 80 80 80 00 00")) << "2^31";
    EXPECT_FALSE(LoadsHex("9F 90 80 80 80 00 00")) << "2^32";
    EXPECT_FALSE(LoadsHex("9F FF FF FF FF FF FF FF FF FF 7F 00"));
}

TEST(CkAsnDer, LengthsOfEverySize_LoadAndComeOut) {
    EXPECT_TRUE(Loads(FromHex("04 00")));
    EXPECT_TRUE(Loads(FromHex("04 7F") + std::string(127, 'x')));
    EXPECT_TRUE(Loads(FromHex("04 81 80") + std::string(128, 'x')));
    EXPECT_TRUE(Loads(FromHex("04 81 FF") + std::string(255, 'x')));
    EXPECT_TRUE(Loads(FromHex("04 82 01 00") + std::string(256, 'x')));
    EXPECT_TRUE(Loads(FromHex("04 82 FF FF") + std::string(65535, 'x')));
    EXPECT_TRUE(Loads(FromHex("04 83 01 00 00") + std::string(65536, 'x')));
    EXPECT_TRUE(Loads(FromHex("04 84 01 00 00 00") + std::string(1 << 24, 'x')));
}

TEST(CkAsnDer, TheLengthsOfParents_CountWhatIsInThem) {
    EXPECT_TRUE(Loads(FromHex("30 81 86 30 81 83 04 81 80") + std::string(128, 'x')));
    EXPECT_TRUE(Loads(FromHex("A0 82 01 04 04 82 01 00") + std::string(256, 'x')));
}

TEST(CkAsnDer, ContentsAreNotJudged) {
    for (const char* der : {"01 00", "01 01 01", "02 00", "02 02 00 01", "02 02 FF FF", "03 00", "03 01 09",
                            "05 01 00", "06 00", "06 01 80", "17 01 78", "0C 01 FF"})
        EXPECT_TRUE(LoadsHex(der)) << der;
}

} // namespace
