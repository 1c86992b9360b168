#pragma once

#include <cstddef>
#include <cstdint>

namespace tev::dumpstate {

// A sensor that the black box may report, and how its records are laid out: the time since the
// record before (u32), then the values (32-bit IEEE floats), all little-endian and packed.
struct SensorType {
    uint8_t number;
    const char* name;
    uint8_t values;       // 1, or 3 for x, y, z
    uint32_t unit_nanos;  // of the time in a record
    bool on_wrist;        // one value, 1.0 while the device is worn: reported as periods of wear

    constexpr size_t record_size() const { return sizeof(uint32_t) * (size_t{1} + values); }
};

// Null for a type that is not supported.
const SensorType* FindSensorType(uint8_t number);

}  // namespace tev::dumpstate
