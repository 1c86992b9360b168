#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace reader {

// Times of the device's own clock and zone, as seconds since 1970 there.

// Reads "2026-11-25 07:29:07", the same in ISO 8601, and what date(1) prints, "Wed Nov 25 07:32:01
// UTC 2026" or with its parts in another order. Nothing when it is no date and time.
std::optional<int64_t> ParseTime(std::string_view text);

// The zone that the time is said to be in: "UTC", "CET", "+01:00", "Z"; "" when it doesn't say.
std::string_view ZoneOf(std::string_view time);

// "2026-11-25 07:29:07"
std::string FormatTime(int64_t seconds);

}  // namespace reader
