#pragma once

#include <span>
#include <string>
#include <vector>

#include "report.h"

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
        bool trouble_differs;  // fails in only some, or otherwise
        bool time_differs;     // by more than twice and by more than 50 ms
        bool text_differs;     // where the texts were compared
    };
    struct SensorLine {
        unsigned number;
        std::string name;
        std::vector<const Sensor*> sensors;  // null where the report has none
        std::vector<bool> stopped;  // has no records, or stands still to the end, and not in all
    };

    std::vector<FactLine> facts;        // those that some report tells
    std::vector<SectionLine> sections;  // the nth of a title is beside the nth of that title
    std::vector<SensorLine> sensors;    // by number
    bool black_box_differs;             // what is wrong with the block
};

// With `texts`, the sections' texts are compared byte by byte, a piece at a time; the reports must
// have been read with theirs.
Comparison Compare(std::span<const Report> reports, bool texts);

}  // namespace reader
