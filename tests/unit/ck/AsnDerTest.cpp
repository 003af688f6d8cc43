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

bool LoadsHex(const std::string& hex) { return Loads(FromHex(hex)); }

TEST(CkAsnDer, WhatIsNotOneValueInDer_IsRefused) {
    const std::vector<std::pair<const char*, std::vector<std::string>>> cases = {
        {"nothing at all", {""}},
        {"a value that ends too soon",
         {"30", "02", "02 01", "02 02 01", "30 03 02 01", "30 05 02 01 05", "30 03 02 02 01", "1F", "9F 81",
          "04 81", "04 82 01", "30 81 80 05 00"}},
        {"something behind the value", {"05 00 00", "05 00 05 00", "30 00 30 00", "30 03 02 01 05 00"}},
        {"a length that reaches beyond the parent", {"30 04 04 03 41 42 43", "30 03 04 02 41 42"}},
        {"indefinite lengths", {"30 80 00 00", "30 80 02 01 05 00 00", "30 04 30 80 00 00"}},
        {"the tag of end-of-contents", {"00 00", "30 02 00 00", "20 00"}},
        {"a length in more octets than it needs",
         {"02 81 01 05", "02 82 00 01 05", "04 81 7F" + ToHex(std::string(127, 'x')),
          "04 82 00 FF" + ToHex(std::string(255, 'x'))}},
        {"a tag number in more octets than it needs",
         {"1F 05 00", "9F 1E 00", "9F 80 1F 00", "9F 80 81 00 00"}},
        {"a tag number of 2^31", {"9F 88 80 80 80 00 00"}},
        {"a tag number of 2^32", {"9F 90 80 80 80 00 00"}},
        {"a tag number beyond 64 bits", {"9F FF FF FF FF FF FF FF FF FF 7F 00"}},
    };
    for (const auto& [rule, values] : cases)
        for (const std::string& hex : values)
            EXPECT_FALSE(LoadsHex(hex)) << rule << ": " << hex;
    EXPECT_TRUE(LoadsHex("9F 87 FF FF FF 7F 00")) << "a tag number of 2^31 - 1";
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
