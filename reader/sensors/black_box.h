#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "text_range.h"

namespace reader {

// One sensor of the black box. Column c of record i is values[c][i]: three columns, one, or none
// when there is no record. Of the on-wrist sensor a record is a period: its start, and its seconds.
struct Sensor {
    unsigned number = 0;
    std::string name;
    std::string skipped;  // why there are no records: "Incomplete buffer"; "" if not skipped
    std::vector<uint64_t> times;              // nanoseconds since boot
    std::vector<std::vector<double>> values;  // as printed, infinities and NaN among them
    std::optional<double> total_worn;         // seconds; only of the on-wrist sensor
    TextRange text;                           // heading and records, or the line that skips it
};

// The block outside of the sections that holds what the sensors recorded.
struct BlackBox {
    std::vector<Sensor> sensors;  // as they stand in the report
    std::string failure;          // what a line of asterisks in it says; "" if none does
    TextRange text;               // from its heading on

    static constexpr char kNoData[] = "no data";

    // What is wrong with the block, as one sentence: what it says itself, "no data" for a bare
    // heading, which sensors were skipped or are missing. "" when nothing is.
    std::string Trouble() const;

    // The next line of the block, without its end: a heading, a record, a skip. Others are left to
    // the block's text.
    void TakeLine(std::string_view line, TextRange where);
    size_t records() const;
};

}  // namespace reader
