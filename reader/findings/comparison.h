#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "report.h"
#include "verdict.h"

namespace reader {

// Reports side by side: element i of every vector here is of report i. Points into the reports.
struct Comparison {
    struct FactLine {
        const FactRow* row;
        std::vector<const Fact*> facts;  // null where the report doesn't say
        bool differs;
    };
    struct SectionLine {
        std::string title;
        std::vector<const Section*> sections;  // null where the report has none
        bool missing_in_some;
        bool time_differs;  // by more than twice and by more than 50 ms
        bool text_differs;  // where the texts were compared
    };
    struct SensorLine {
        unsigned number;
        size_t nth;  // of the sensors of that number in a report
        std::string name;
        std::vector<std::optional<Finding::SensorPlace>> sensors;  // nothing where it has none
    };
    struct FindingLine {
        std::string check;
        std::string subject;
        std::vector<const Finding*> findings;  // null where it is not found
        // What stands in its place there: "good", or why nobody can tell.
        std::vector<const char*> otherwise;
        bool differs;  // it is found in only some, or otherwise
    };

    std::vector<FactLine> facts;        // those that some report tells
    std::vector<SectionLine> sections;  // the nth of a title is beside the nth of that title
    std::vector<SensorLine> sensors;    // by number; the nth of a number beside the nth
    std::vector<FindingLine> findings;  // the gravest first; the nth of a kind beside the nth
};

// With `texts`, the sections' texts are compared byte by byte, a piece at a time; the reports must
// have been read with theirs.
Comparison Compare(std::span<const Report> reports, std::span<const Verdict> verdicts, bool texts);

}  // namespace reader
