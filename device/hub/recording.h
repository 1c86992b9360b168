#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <span>
#include <vector>

#include "sensor_data.h"

// What every snapshot holds: the sensors' data, and how it is cut and shuffled. Made once, for this
// machine's uptime, and then only read.
class Recording {
  public:
    // A part of one sensor's bytes.
    struct Piece {
        uint32_t sensor;  // index in sensors()
        uint32_t offset;
        uint32_t length;
    };

    Recording(uint32_t records, const StuckSensor& stuck);

    std::span<const SensorBuffer> sensors() const { return sensors_; }
    // A fragment holds a few pieces. Together, the fragments hold every byte of every sensor once.
    uint32_t fragments() const;
    std::span<const Piece> fragment(uint32_t index) const;

  private:
    std::mt19937_64 random_;  // from one seed: the same data at each start
    std::vector<SensorBuffer> sensors_;
    std::vector<Piece> pieces_;
};
