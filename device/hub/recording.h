#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <span>
#include <vector>

#include "sensor_data.h"

enum class Order { kShuffled, kSorted };

// What every snapshot holds: the sensors' data and how it is cut. Made once and then only read.
class Recording {
  public:
    // A part of one sensor's bytes.
    struct Piece {
        uint32_t sensor;  // index in sensors()
        uint32_t offset;
        uint32_t length;
    };

    Recording(uint64_t seed, uint32_t records, Order order, const StuckSensor& stuck);

    std::span<const SensorBuffer> sensors() const { return sensors_; }
    // A fragment holds a few pieces. Together, the fragments hold every byte of every sensor once.
    uint32_t fragments() const;
    std::span<const Piece> fragment(uint32_t index) const;

  private:
    std::mt19937_64 random_;
    std::vector<SensorBuffer> sensors_;
    std::vector<Piece> pieces_;
};
