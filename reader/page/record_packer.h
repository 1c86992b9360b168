#pragma once

#include <cstdint>
#include <string>

#include "black_box.h"

namespace reader {

// A sensor's records as a page carries them; assets/records.js tells what `bytes` holds and reads
// it.
struct PackedRecords {
    uint64_t first = 0;        // the oldest record's time, nanoseconds since boot
    uint64_t unit = 1;         // of the times, in nanoseconds
    bool plain_times = false;  // as they are, because they are too far apart for steps
    std::string bytes;
};

// The sensor has records.
PackedRecords PackRecords(const Sensor& sensor);

}  // namespace reader
