#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace reader {

// Times of the device's own clock and zone, as seconds since 1970 there.

// Reads "2026-11-25 07:29:07" and what date(1) prints, "Wed Nov 25 07:32:01 UTC 2026" or with its
// parts in another order. Nothing when it is no date and time.
std::optional<int64_t> ParseTime(std::string_view text);

// "2026-11-25 07:29:07"
std::string FormatTime(int64_t seconds);

// The same with milliseconds, so many nanoseconds later.
std::string FormatTime(int64_t seconds, uint64_t nanoseconds);

}  // namespace reader
