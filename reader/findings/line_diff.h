#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

namespace reader {

// Lines that follow one another and have the same fate. A line has its newline with it.
struct DiffRun {
    enum class Kind { kCommon, kRemoved, kAdded };
    Kind kind;
    std::vector<std::string_view> lines;
};

// How one text becomes another, line by line; the runs point into them. Nothing where that would
// take too long: the texts are too large and differ in too much.
std::optional<std::vector<DiffRun>> DiffLines(std::string_view before, std::string_view after);

}  // namespace reader
