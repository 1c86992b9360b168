#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace reader {

struct BlackBox;
struct Sensor;

// What a sensor's records are like. Of gestures and wear, which come when they come, only the first
// five are measured.
struct SensorStatistics {
    struct Period {
        uint64_t begin;  // nanoseconds since boot
        uint64_t end;
        double seconds() const { return static_cast<double>(end - begin) / 1e9; }
    };
    static constexpr double kGapSteps = 10;

    size_t records = 0;
    // Of its records, in nanoseconds since boot; of wear, the end. Without what is from before the
    // boot, which wraps.
    uint64_t newest = 0;
    double span = 0;         // seconds from the oldest record to the newest
    double rate = 0;         // records a second; 0 with fewer than two
    double median_step = 0;  // seconds; of the steps that aren't 0 where most are

    size_t repeated = 0;  // records with the time of the one before
    size_t gaps = 0;      // steps of more than kGapSteps times the median
    Period longest_gap{0, 0};
    size_t jumps = 0;  // steps back, and the longest: from `end` back to `begin`
    Period longest_jump{0, 0};
    bool still = false;  // at least two records and all values equal
    // The records that stood still after the sensor had moved: the last of them if it still does,
    // else the longest such time. Ten records and two seconds at least.
    std::optional<Period> frozen;
    bool frozen_to_end = false;
    // Bits of the columns that stand still while others move: from the first record on, or for the
    // last ten seconds at least, since when.
    unsigned stuck_columns = 0;
    uint64_t stuck_since = 0;
    // Seconds from its newest record to the newest of any sensor that records all the time, where
    // that is more than ten times the median step and a second.
    double silent = 0;
};

// `newest`: of the black box's sensors that record all the time.
SensorStatistics Measure(const Sensor& sensor, uint64_t newest);

}  // namespace reader
