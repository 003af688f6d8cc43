#pragma once

// Private to ck/.

#include <ctime>
#include <optional>
#include <string>
#include <string_view>

/// The UTC date and time `utc` as "Tue, 15 Nov 2022 00:00:00 GMT"; English in every locale.
std::string FormatRfc822(const std::tm& utc);

/// The moment that a date of RFC 822 section 5.1 names: the day of the week may be missing and must be right,
/// the year has four digits (RFC 1123 section 5.2.14), the seconds may be missing, the zone is UT, UTC, GMT,
/// Z or an offset. Nothing when `text` is none.
std::optional<std::time_t> ParseRfc822(std::string_view text);
