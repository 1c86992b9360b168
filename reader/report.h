#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "facts.h"
#include "report_parser.h"
#include "source.h"

namespace reader {

// What a report says, without its sections' texts: those are read from `source` when they are
// shown.
struct Report {
    std::string file;  // as it was named; "-" for standard input
    uint64_t size = 0;
    bool verbose = false;
    std::vector<Section> sections;      // as they stand in the report
    std::optional<BlackBox> black_box;  // nothing when the report has no such block
    std::vector<TextRange> outside;     // lines outside of sections and black box
    std::vector<Fact> facts;
    std::shared_ptr<Source> source;

    size_t failed() const;     // sections with a failure
    bool complete() const;     // every section that begins ends, and the last line too
    bool ends_in_line = true;  // the last byte is a newline
    // "" when nothing is wrong with the black box.
    std::string BlackBoxTrouble() const;
    // Null when the report doesn't say.
    const Fact* FindFact(std::string_view key) const;
    // Seconds since 1970 in the device's local time, when the device booted; a sensor's time of day
    // is this plus its nanoseconds.
    std::optional<int64_t> BootSeconds() const;
};

// Reads the file, "-" for standard input, to its end. With `texts` its source can be read again.
// Returns "" or a sentence: it can't be read, is empty, or is no board report.
std::string ReadReport(const std::string& file, bool texts, Report& report);

// "2026-11-25 07:31:58.250", of seconds since 1970 and nanoseconds after them.
std::string FormatTime(int64_t seconds, uint64_t nanoseconds);

}  // namespace reader
