#include "CkDateTime.h"

#include "Rfc822Date.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace {

std::string FormatRfc3339(const std::tm& time) {
    std::array<char, 96> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d", time.tm_year + 1900,
                  time.tm_mon + 1, time.tm_mday, time.tm_hour, time.tm_min, time.tm_sec);
    return text.data();
}

std::string FormatOffset(long secondsAhead) {
    const long minutes = std::labs(secondsAhead) / 60;
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%c%02ld:%02ld", secondsAhead < 0 ? '-' : '+', minutes / 60,
                  minutes % 60);
    return text.data();
}

constexpr std::array<std::pair<std::string_view, std::int64_t>, 4> kSecondsOfUnit = {
    {{"seconds", 1}, {"minutes", 60}, {"hours", 60 * 60}, {"days", 24 * 60 * 60}}};

} // namespace

bool CkDateTime::SetFromRfc822(std::string_view text) {
    const std::optional<std::time_t> time = ParseRfc822(text);
    if (time)
        time_ = time;
    return time.has_value();
}

std::string CkDateTime::getAsTimestamp(bool localTime) const {
    if (!time_)
        return {};
    std::tm time{};
    if (!localTime) {
        gmtime_r(&*time_, &time);
        return FormatRfc3339(time) + "Z";
    }
    tzset(); // localtime_r need not look at TZ by itself
    localtime_r(&*time_, &time);
    return FormatRfc3339(time) + FormatOffset(time.tm_gmtoff);
}

bool CkDateTime::OlderThan(int amount, std::string_view units) const {
    for (const auto& [unit, seconds] : kSecondsOfUnit)
        if (unit == units)
            return !time_ || std::time(nullptr) - *time_ > amount * seconds;
    return false;
}
