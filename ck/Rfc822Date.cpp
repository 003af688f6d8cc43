#include "Rfc822Date.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>

namespace {

constexpr std::array<std::string_view, 7> kDays = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr std::array<std::string_view, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

/// Takes a text apart from the front. The first thing that is missing makes it fail, and all that follows.
class Reader {
public:
    explicit Reader(std::string_view text) : text_(text) {}

    bool failed() const { return failed_; }
    bool atEnd() const { return text_.empty(); }

    /// Removes `expected` when it stands next.
    bool Accept(std::string_view expected) {
        if (!text_.starts_with(expected))
            return false;
        text_.remove_prefix(expected.size());
        return true;
    }

    void Expect(std::string_view expected) { failed_ |= !Accept(expected); }

    void SkipBlanks() { text_.remove_prefix(std::min(text_.find_first_not_of(" \t"), text_.size())); }

    /// The number that the next `minDigits` to `maxDigits` digits make.
    unsigned Number(std::size_t minDigits, std::size_t maxDigits) {
        unsigned value = 0;
        const char* const begin = text_.data();
        const char* const end = begin + std::min(maxDigits, text_.size());
        const auto digits = static_cast<std::size_t>(std::from_chars(begin, end, value).ptr - begin);
        failed_ |= digits < minDigits;
        text_.remove_prefix(digits);
        return value;
    }

    /// The position in `names` of the one that stands next.
    template <std::size_t N>
    unsigned OneOf(const std::array<std::string_view, N>& names) {
        const auto found = std::find_if(names.begin(), names.end(), [&](auto name) { return Accept(name); });
        failed_ |= found == names.end();
        return static_cast<unsigned>(found - names.begin());
    }

private:
    std::string_view text_;
    bool failed_ = false;
};

/// What the zone that stands next is ahead of UTC.
std::chrono::minutes ReadZone(Reader& reader) {
    for (const char* utc : {"GMT", "UTC", "UT", "Z"})
        if (reader.Accept(utc))
            return {};
    const bool behind = reader.Accept("-");
    if (!behind)
        reader.Expect("+");
    const std::chrono::hours hours{reader.Number(2, 2)};
    const std::chrono::minutes offset = hours + std::chrono::minutes{reader.Number(2, 2)};
    return behind ? -offset : offset;
}

} // namespace

std::string FormatRfc822(const std::tm& utc) {
    // Not tm_wday: libcrypto leaves it behind when a zone moves the date.
    const std::chrono::sys_days date(std::chrono::year(utc.tm_year + 1900) / (utc.tm_mon + 1) / utc.tm_mday);
    const std::string_view day = kDays[std::chrono::weekday(date).c_encoding()];
    const std::string_view month = kMonths[static_cast<std::size_t>(utc.tm_mon)];
    std::array<char, 96> text{};
    std::snprintf(text.data(), text.size(), "%s, %02d %s %04d %02d:%02d:%02d GMT", day.data(), utc.tm_mday,
                  month.data(), utc.tm_year + 1900, utc.tm_hour, utc.tm_min, utc.tm_sec);
    return text.data();
}

std::optional<std::time_t> ParseRfc822(std::string_view text) {
    using namespace std::chrono;

    Reader reader(text);
    reader.SkipBlanks();
    std::optional<weekday> namedDay;
    for (unsigned i = 0; i < kDays.size(); ++i)
        if (reader.Accept(kDays[i])) {
            reader.Expect(",");
            namedDay = weekday(i);
        }
    reader.SkipBlanks();
    const day dayOfMonth(reader.Number(1, 2));
    reader.SkipBlanks();
    const month monthOfYear(reader.OneOf(kMonths) + 1);
    reader.SkipBlanks();
    const year yearNumber(static_cast<int>(reader.Number(4, 4)));
    reader.SkipBlanks();
    const hours hour(reader.Number(2, 2));
    reader.Expect(":");
    const minutes minute(reader.Number(2, 2));
    const seconds second(reader.Accept(":") ? reader.Number(2, 2) : 0);
    reader.SkipBlanks();
    const minutes ahead = ReadZone(reader);
    reader.SkipBlanks();

    const year_month_day date(yearNumber, monthOfYear, dayOfMonth);
    if (reader.failed() || !reader.atEnd() || !date.ok() || hour > 23h || minute > 59min || second > 60s)
        return std::nullopt;
    const sys_days midnight(date);
    if (namedDay && *namedDay != weekday(midnight))
        return std::nullopt;
    // Not through system_clock, whose nanoseconds end in the year 2262.
    return (midnight.time_since_epoch() + hour + minute + second - ahead).count();
}
