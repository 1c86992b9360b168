#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sensor_statistics.h"
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
    bool periods = false;                     // its records are such
    std::optional<double> total_worn;         // seconds; only of the on-wrist sensor
    TextRange text;                           // heading and records, or the line that skips it
    SensorStatistics statistics;              // once the block has ended
};

// The block outside of the sections that holds what the sensors recorded.
struct BlackBox {
    std::vector<Sensor> sensors;  // as they stand in the report
    std::string failure;          // what a line of asterisks in it says; "" if none does
    TextRange text;               // from its heading on
    bool ended = false;           // something follows it; else more of it may have been lost
    bool torn = false;            // what follows it is not the next that the service writes
    bool headless = false;        // it begins with a sensor: its heading was lost
    size_t odd_lines = 0;         // that are none of the block's: what stood there was lost
    TextRange odd_line;           // the first of them

    // The next line of the block, without its end: a heading, a record, a skip. Others are left to
    // the block's text.
    void TakeLine(std::string_view line, TextRange where);
    // Nothing more will come: measures every sensor.
    void End(uint64_t at);
    // The newest record of the sensors that record all the time; 0 without any.
    uint64_t newest() const;
};

}  // namespace reader
