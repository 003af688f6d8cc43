#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <string_view>

/// A point in time, to the second; none at first. English and UTC whatever the locale and time zone of the
/// process.
class CkDateTime {
public:
    /// Takes a date such as "Tue, 15 Nov 2022 00:00:00 GMT" (RFC 822 with a four-digit year). False, and the
    /// object unchanged, when `text` is none.
    bool SetFromRfc822(std::string_view text);

    /// The moment as "2022-11-15T00:00:00Z" (RFC 3339); with `localTime` the same moment on the local clock,
    /// with its offset ("2022-11-15T05:30:00+05:30"). Empty when there is none.
    std::string getAsTimestamp(bool localTime) const;

    /// True when the moment lies more than `amount` `units` in the past. Units: "seconds", "minutes",
    /// "hours", "days". An unknown unit is never older; where there is no moment, it is past: nothing is
    /// valid until then.
    bool OlderThan(int amount, std::string_view units) const;

private:
    std::optional<std::time_t> time_;
};
