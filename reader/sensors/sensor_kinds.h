#pragma once

#include <span>

#include "black_box.h"

namespace reader {

// What the hub of a wearable records: one table, by the sensor's number.
struct SensorKind {
    // Vectors and scalars are measured all the time; events are gestures; wear is periods.
    enum class Shape { kVector, kScalar, kEvent, kWear };
    unsigned number;
    const char* name;
    Shape shape;
    const char* unit;  // "m/s²"; "" where there is none

    bool steady() const { return shape == Shape::kVector || shape == Shape::kScalar; }
};

std::span<const SensorKind> KnownSensors();

// A sensor that the table doesn't have is a vector or a scalar, as its records are.
SensorKind KindOf(const Sensor& sensor);

}  // namespace reader
