#include "units.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace reader {

std::string HumanSize(uint64_t bytes) {
    constexpr std::array<const char*, 4> kUnits = {"bytes", "KiB", "MiB", "GiB"};
    size_t unit = 0;
    auto size = static_cast<double>(bytes);
    while (size >= 1024 && unit + 1 < kUnits.size()) {
        size /= 1024;
        ++unit;
    }
    return Fixed(size, unit == 0 ? 0 : 1) + " " + kUnits[unit];
}

std::string Fixed(double number, int digits) {
    std::array<char, 400> text{};  // the longest number has 309 digits before the point
    std::snprintf(text.data(), text.size(), "%.*f", digits, number);
    return text.data();
}

std::string Grouped(uint64_t number) {
    std::string digits = std::to_string(number);
    for (size_t at = digits.size(); at > 3; at -= 3) digits.insert(at - 3, 1, ',');
    return digits;
}

std::string Counted(uint64_t count, std::string_view what) {
    return Grouped(count).append(" ").append(what).append(count == 1 ? "" : "s");
}

std::string Duration(double seconds) {
    if (seconds < 60) return Fixed(seconds, seconds < 10 ? 1 : 0) + " s";
    // No device runs for as long as this can't hold.
    const auto whole = static_cast<uint64_t>(std::min(std::round(seconds), 1e15));
    const auto both = [](uint64_t large, const char* of, uint64_t small, const char* rest) {
        std::string text = std::to_string(large) + of;
        if (small > 0) text.append(" ").append(std::to_string(small)).append(rest);
        return text;
    };
    if (whole < 3600) return both(whole / 60, " min", whole % 60, " s");
    if (whole < 86400) return both(whole / 3600, " h", whole % 3600 / 60, " min");
    return both(whole / 86400, " d", whole % 86400 / 3600, " h");
}

}  // namespace reader
