#include "sensor_kinds.h"

#include <algorithm>
#include <iterator>

namespace reader {
namespace {

using Shape = SensorKind::Shape;

constexpr SensorKind kKinds[] = {
        {1, "Accelerometer", Shape::kVector, "m/s²"},  {6, "Gyroscope", Shape::kVector, "rad/s"},
        {8, "Magnetometer", Shape::kVector, "µT"},     {10, "Barometer", Shape::kScalar, "hPa"},
        {196, "LowLatencyOffBody", Shape::kWear, "s"}, {200, "TiltToWake", Shape::kEvent, ""},
        {214, "RaiseToTalk", Shape::kEvent, ""},
};

}  // namespace

std::span<const SensorKind> KnownSensors() {
    return kKinds;
}

SensorKind KindOf(const Sensor& sensor) {
    const auto* const known = std::ranges::find(kKinds, sensor.number, &SensorKind::number);
    if (known != std::end(kKinds)) return *known;
    return {sensor.number, "", sensor.values.size() > 1 ? Shape::kVector : Shape::kScalar, ""};
}

}  // namespace reader
