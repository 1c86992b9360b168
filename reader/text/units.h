#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace reader {

// Numbers for people.

// "1.5 MiB"
std::string HumanSize(uint64_t bytes);
// "2 min 54 s"; below a minute "4.5 s".
std::string Duration(double seconds);
// Always the same form, with so many digits after the point.
std::string Fixed(double number, int digits);
// "7,442"
std::string Grouped(uint64_t number);
// "1 record", "7,442 records"
std::string Counted(uint64_t count, std::string_view what);

}  // namespace reader
