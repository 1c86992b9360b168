#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "report.h"

namespace reader {

struct Summary {
    std::string text;  // lines of at most 80 columns, without control characters but colours
    bool good;         // nothing failed, and nothing differs
};

// What is wrong with the report, the most important first; with others, what differs from it.
Summary Summarize(std::span<const Report> reports, bool colour);

// "7 sensors, 7495 records" and what is wrong with them; null is none in the report.
std::string DescribeBlackBox(const BlackBox* black_box);

// Tells by its sections whether a report is of a host that has no vendor programs, and so is no
// wearable: nearly everything fails there, for one reason.
class HostCheck {
  public:
    void Add(const Section& section);
    // "" or the sentence that says so.
    std::string Sentence() const;

  private:
    size_t commands_ = 0;
    size_t without_program_ = 0;
};

}  // namespace reader
