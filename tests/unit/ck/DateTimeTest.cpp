#include "ck/CkDateTime.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

std::string TimestampOf(std::string_view rfc822) {
    CkDateTime time;
    return time.SetFromRfc822(rfc822) ? time.getAsTimestamp(false) : "none";
}

/// Sets the zone of the process for a test.
class Zone {
public:
    explicit Zone(const char* tz) { setenv("TZ", tz, 1); }
    Zone(const Zone&) = delete;
    Zone& operator=(const Zone&) = delete;
    ~Zone() { unsetenv("TZ"); }
};

/// `secondsAgo` before now, as a text.
std::string Ago(int secondsAgo) {
    const std::time_t then = std::time(nullptr) - secondsAgo;
    std::tm utc{};
    gmtime_r(&then, &utc);
    char text[64];
    std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &utc); // the tests run in the C locale
    return text;
}

TEST(CkDateTime, SetFromRfc822_TakesTheDatesOfCertificates) {
    EXPECT_EQ(TimestampOf("Tue, 15 Nov 2022 00:00:00 GMT"), "2022-11-15T00:00:00Z");
    EXPECT_EQ(TimestampOf("Fri, 31 Dec 9999 23:59:59 GMT"), "9999-12-31T23:59:59Z");
    EXPECT_EQ(TimestampOf("Sun, 01 Jan 1950 00:00:00 GMT"), "1950-01-01T00:00:00Z");
    EXPECT_EQ(TimestampOf("Thu, 29 Feb 2024 12:34:56 GMT"), "2024-02-29T12:34:56Z");
    EXPECT_EQ(TimestampOf("Sat, 01 Jan 0000 00:00:00 GMT"), "0000-01-01T00:00:00Z");
}

TEST(CkDateTime, SetFromRfc822_TakesWhatTheFormatLeavesOpen) {
    EXPECT_EQ(TimestampOf("5 Nov 2022 07:08 UT"), "2022-11-05T07:08:00Z");
    EXPECT_EQ(TimestampOf("  Tue,15 Nov 2022  00:00:00 +0530 "), "2022-11-14T18:30:00Z");
    EXPECT_EQ(TimestampOf("Tue, 15 Nov 2022 00:00:00 -0030"), "2022-11-15T00:30:00Z");
    EXPECT_EQ(TimestampOf("Tue, 15 Nov 2022 00:00:00 Z"), "2022-11-15T00:00:00Z");
}

TEST(CkDateTime, SetFromRfc822_RefusesEverythingElse) {
    for (const char* text :
         {"", "   ", "2022-11-15T00:00:00Z", "Tue, 15 Nov 2022", "Tue, 15 Nov 22 00:00:00 GMT",
          "Tue, 15 Nov 2022 00:00:00", "Tue, 15 Nov 2022 00:00:00 GMT x", "Tue, 31 Feb 2023 00:00:00 GMT",
          "Tue, 15 Nov 2022 24:00:00 GMT", "Tue, 15 Nov 2022 00:60:00 GMT", "Tue, 15 Nov 2022 00:00:61 GMT",
          "Die, 15 Nov 2022 00:00:00 GMT", "Tue, 15 nov 2022 00:00:00 GMT", "Mon, 15 Nov 2022 00:00:00 GMT",
          "Tue 15 Nov 2022 00:00:00 GMT", "Tue, 0 Nov 2022 00:00:00 GMT", "Tue, -5 Nov 2022 00:00:00 GMT",
          "Tue, 15 Nov 2022 00:00:00 +5", "Tue, 15 Nov 99999 00:00:00 GMT"})
        EXPECT_EQ(TimestampOf(text), "none") << text;
}

TEST(CkDateTime, WithoutADate_HasNoTimestampAndIsPast) {
    CkDateTime time;
    EXPECT_FALSE(time.SetFromRfc822(""));
    EXPECT_EQ(time.getAsTimestamp(false), "");
    EXPECT_EQ(time.getAsTimestamp(true), "");
    EXPECT_TRUE(time.OlderThan(1, "seconds"));
}

TEST(CkDateTime, SetFromRfc822_LeavesTheObjectUnchangedWhenItFails) {
    CkDateTime time;
    ASSERT_TRUE(time.SetFromRfc822("Tue, 15 Nov 2022 00:00:00 GMT"));
    EXPECT_FALSE(time.SetFromRfc822("tomorrow"));
    EXPECT_EQ(time.getAsTimestamp(false), "2022-11-15T00:00:00Z");
}

TEST(CkDateTime, GetAsTimestamp_IsInUtcWhateverTheZone) {
    const Zone zone("IST-5:30");
    EXPECT_EQ(TimestampOf("Tue, 15 Nov 2022 00:00:00 GMT"), "2022-11-15T00:00:00Z");
}

TEST(CkDateTime, GetAsTimestamp_WritesTheLocalClockWithItsOffset) {
    CkDateTime time;
    time.SetFromRfc822("Tue, 15 Nov 2022 00:00:00 GMT");
    {
        const Zone zone("IST-5:30");
        EXPECT_EQ(time.getAsTimestamp(true), "2022-11-15T05:30:00+05:30");
    }
    {
        const Zone zone("NST3:30");
        EXPECT_EQ(time.getAsTimestamp(true), "2022-11-14T20:30:00-03:30");
    }
}

TEST(CkDateTime, OlderThan_IsTrueWhenMoreThanTheAmountHasPassed) {
    CkDateTime time;
    ASSERT_TRUE(time.SetFromRfc822(Ago(7200 - 30)));
    EXPECT_TRUE(time.OlderThan(1, "seconds"));
    EXPECT_TRUE(time.OlderThan(119, "minutes"));
    EXPECT_TRUE(time.OlderThan(1, "hours"));
    EXPECT_FALSE(time.OlderThan(2, "hours"));
    EXPECT_FALSE(time.OlderThan(1, "days"));
    ASSERT_TRUE(time.SetFromRfc822(Ago(86400 + 30)));
    EXPECT_TRUE(time.OlderThan(1, "days"));
    ASSERT_TRUE(time.SetFromRfc822(Ago(-3600)));
    EXPECT_FALSE(time.OlderThan(1, "seconds"));
}

TEST(CkDateTime, OlderThan_CountsOneSecondOnlyWhenItIsOver) {
    CkDateTime time;
    ASSERT_TRUE(time.SetFromRfc822(Ago(0)));
    EXPECT_FALSE(time.OlderThan(1, "seconds"));
}

TEST(CkDateTime, OlderThan_IsNeverTrueForAnUnknownUnit) {
    EXPECT_FALSE(CkDateTime().OlderThan(1, "fortnights"));
}

TEST(CkDateTime, OlderThan_TakesTheLargestAmount) {
    CkDateTime time;
    ASSERT_TRUE(time.SetFromRfc822("Thu, 01 Jan 1970 00:00:00 GMT"));
    EXPECT_FALSE(time.OlderThan(INT32_MAX, "days"));
}

} // namespace
