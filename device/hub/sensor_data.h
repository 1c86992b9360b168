#pragma once

#include <cstdint>
#include <random>
#include <vector>

// What one sensor has recorded: records, oldest first, each of a u32 (the time since the record
// before it) and one or three 32-bit IEEE floats, all little-endian.
struct SensorBuffer {
    uint8_t type;
    uint64_t age_ns;  // of the newest record when a snapshot is taken
    std::vector<uint8_t> bytes;
};

// A sensor that got stuck: its records go on, their values stand still.
struct StuckSensor {
    uint32_t type = 0;   // 0: none is
    uint32_t after = 0;  // seconds of its recording
};

// The types of the black box's sensors.
std::vector<uint32_t> SensorTypes();

// The fewest records that RecordSensors() can make.
extern const uint32_t kFewestRecords;

uint64_t NanosSinceBoot();

// So many records in all, of someone who walks and stands by turns: all seven sensors of the black
// box, every one with a record at least. All were made since boot: of a sensor whose recording
// would have begun before, the records follow each other faster. The same random numbers make the
// same values.
std::vector<SensorBuffer> RecordSensors(std::mt19937_64& random, uint32_t records,
                                        const StuckSensor& stuck);
