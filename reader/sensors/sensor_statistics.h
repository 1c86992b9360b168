#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "black_box.h"

namespace reader {

struct SensorStatistics {
    struct Period {
        uint64_t begin;  // nanoseconds since boot
        uint64_t end;
        double seconds() const { return static_cast<double>(end - begin) / 1e9; }
    };

    size_t records = 0;
    double span = 0;           // seconds from the oldest record to the newest
    double rate = 0;           // records a second; 0 with fewer than two
    double median_step = 0;    // seconds
    std::vector<Period> gaps;  // steps of more than ten times the median; not of events and wear
    bool still = false;        // at least two records and all values equal; not of events and wear
    // The records that stood still after the sensor had moved: the last of them if it still does,
    // else the longest such time. Ten records and two seconds at least.
    std::optional<Period> frozen;
    bool frozen_to_end = false;
    // Seconds from its newest record to the newest of any sensor that records all the time, where
    // that is more than ten times the median step and a second.
    double silent = 0;
};

SensorStatistics Measure(const BlackBox& black_box, const Sensor& sensor);

// What is wrong with the sensor, for people: "skipped: Incomplete buffer", "stood still",
// "froze at ...", "2 gaps"; "" when nothing is. Times of day where boot_seconds are known.
std::string SensorTrouble(const Sensor& sensor, const SensorStatistics& statistics,
                          std::optional<int64_t> boot_seconds);

}  // namespace reader
