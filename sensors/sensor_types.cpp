#include "sensor_types.h"

#include <algorithm>
#include <iterator>

namespace tev::dumpstate {
namespace {

constexpr uint32_t kMicrosecond = 1000;
constexpr uint32_t kMillisecond = 1000000;

constexpr SensorType kSensorTypes[] = {
        {1, "Accelerometer", 3, kMicrosecond, false},
        {6, "Gyroscope", 3, kMicrosecond, false},
        {8, "Magnetometer", 3, kMicrosecond, false},
        {10, "Barometer", 1, kMicrosecond, false},
        {196, "LowLatencyOffBody", 1, kMillisecond, true},
        {200, "TiltToWake", 1, kMicrosecond, false},
        {214, "RaiseToTalk", 1, kMicrosecond, false},
};

}  // namespace

const SensorType* FindSensorType(uint8_t number) {
    const auto* const found = std::ranges::find(kSensorTypes, number, &SensorType::number);
    return found == std::end(kSensorTypes) ? nullptr : found;
}

}  // namespace tev::dumpstate
