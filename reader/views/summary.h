#pragma once

#include <span>
#include <string>

#include "report.h"
#include "verdict.h"

namespace reader {

struct Summary {
    std::string text;  // lines of at most 80 columns, without control characters but colours
    bool good;         // nothing is wrong but notes, and nothing differs
};

// What is wrong with the report, the gravest first, and what else is to be known at a glance; with
// others, what is wrong in which, and what differs.
Summary Summarize(std::span<const Report> reports, std::span<const Verdict> verdicts, bool colour);

}  // namespace reader
