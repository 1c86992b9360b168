#include "sensor_data.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <ctime>
#include <limits>
#include <numbers>
#include <numeric>

namespace {

using Random = std::mt19937_64;
using Values = std::array<double, 3>;

constexpr double kGravity = 9.81;  // m/s²
constexpr double kArm = 0.55;      // m, from the shoulder to the wrist
constexpr double kTurn = 2 * std::numbers::pi;

// Sensors start some seconds after boot, and hand over what they have in batches. Both are more
// than what is lost where times are told in whole seconds.
constexpr uint64_t kStart = 3'000'000'000;
constexpr uint64_t kLatency = 2'500'000'000;

double Between(double least, double most, Random& random) {
    return std::uniform_real_distribution(least, most)(random);
}

// What the wrist is doing at one moment. The watch's axes: x across the arm in the direction of the
// walk, y along the arm to the hand, z out of the display.
struct Pose {
    double vigour;  // 0 standing, 1 walking
    double phase;   // of the arm's swing, radians; the feet step twice a swing
    double angle;   // of the arm to the vertical, radians
    double rate;    // its change, radians a second
};

// One walker, the same for all sensors.
class Walk {
  public:
    explicit Walk(Random& random)
        : stride_(Between(0.88, 1.02, random)),
          swing_(Between(0.35, 0.55, random)),
          bout_(Between(38, 52, random)),
          start_(Between(0, kTurn, random)) {}

    Pose At(double seconds) const {
        const double bout = 0.6 + 1.4 * std::sin(kTurn * seconds / bout_ + start_);
        const double vigour = std::clamp(bout, 0.0, 1.0);
        const double phase = kTurn * stride_ * seconds;
        return {vigour, phase, vigour * swing_ * std::sin(phase),
                vigour * swing_ * kTurn * stride_ * std::cos(phase)};
    }

  private:
    double stride_;  // swings a second
    double swing_;   // radians
    double bout_;    // seconds from one stop to the next
    double start_;
};

// A sample's time is in seconds from the oldest record.
struct Moment {
    const Walk& walk;
    double seconds;
    uint32_t number;  // of the record, from 0
    Random& random;

    Pose pose() const { return walk.At(seconds); }
    double noise(double most) const { return Between(-most, most, random); }
};

// m/s²
Values Accelerometer(const Moment& now) {
    const Pose pose = now.pose();
    const double step =
            pose.vigour * (1.6 * std::cos(2 * pose.phase) + 0.5 * std::cos(4 * pose.phase + 0.7));
    return {kGravity * std::sin(pose.angle + 0.12) + now.noise(0.08),
            -kGravity * std::cos(pose.angle + 0.12) - kArm * pose.rate * pose.rate - step +
                    now.noise(0.08),
            0.9 + 0.4 * step + now.noise(0.08)};
}

// rad/s, with the bias that such a sensor has
Values Gyroscope(const Moment& now) {
    const Pose pose = now.pose();
    return {0.15 * pose.rate + now.noise(0.01) + 0.004,
            0.3 * pose.vigour * std::sin(2 * pose.phase + 0.4) + now.noise(0.01) - 0.007,
            pose.rate + now.noise(0.01) + 0.002};
}

// µT: a field of 48 that dips by 62 degrees, seen from a wrist that swings and slowly turns
Values Magnetometer(const Moment& now) {
    constexpr double kNorth = 22.5;
    constexpr double kDown = 42.4;
    const double angle = now.pose().angle;
    const double heading = 0.8 + 0.6 * std::sin(kTurn * now.seconds / 170);
    const double ahead = kNorth * std::cos(heading);
    return {ahead * std::cos(angle) - kDown * std::sin(angle) + now.noise(0.4),
            ahead * std::sin(angle) + kDown * std::cos(angle) + now.noise(0.4),
            -kNorth * std::sin(heading) + now.noise(0.4)};
}

// hPa: the weather, and a walk that goes up and down by some metres
Values Barometer(const Moment& now) {
    return {1009.6 + 0.4 * std::sin(now.seconds / 900) + 0.35 * std::sin(kTurn * now.seconds / 95) +
            now.noise(0.02)};
}

// On at first, and by turns from there.
Values OnWrist(const Moment& now) {
    return {now.number % 2 == 0 ? 1.0 : 0.0};
}

Values Gesture(const Moment& /*now*/) {
    return {1.0};
}

struct Sensor {
    uint8_t type;
    size_t values;
    uint64_t unit_ns;  // of the times in records
    // A sampled sensor gets its share of the records; an event sensor has always as many.
    uint32_t events;
    uint32_t per_minute;
    uint32_t shortest, longest;  // time between two records, in units
    Values (*sample)(const Moment& now);
};

constexpr std::array<Sensor, 7> kSensors = {{
        {1, 3, 1000, 1, 1500, 39'600, 40'400, Accelerometer},
        {6, 3, 1000, 1, 1500, 39'600, 40'400, Gyroscope},
        {8, 3, 1000, 1, 600, 99'000, 101'000, Magnetometer},
        {10, 1, 1000, 1, 60, 990'000, 1'010'000, Barometer},
        {196, 1, 1'000'000, 9, 0, 60'000, 900'000, OnWrist},
        {200, 1, 1000, 8, 0, 4'000'000, 25'000'000, Gesture},
        {214, 1, 1000, 4, 0, 15'000'000, 45'000'000, Gesture},
}};

constexpr uint32_t Sum(uint32_t Sensor::*field) {
    return std::accumulate(kSensors.begin(), kSensors.end(), uint32_t{0},
                           [=](uint32_t sum, const Sensor& one) { return sum + one.*field; });
}

// The first sensor takes what rounding leaves over.
std::array<uint32_t, kSensors.size()> Share(uint32_t records) {
    const uint64_t sampled = records - kFewestRecords;
    std::array<uint32_t, kSensors.size()> counts{};
    for (size_t i = 0; i < kSensors.size(); ++i) {
        counts[i] = kSensors[i].events + static_cast<uint32_t>(sampled * kSensors[i].per_minute /
                                                               Sum(&Sensor::per_minute));
    }
    counts[0] += records - std::accumulate(counts.begin(), counts.end(), uint32_t{0});
    return counts;
}

void PutU32(std::vector<uint8_t>& bytes, uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) {
        bytes.push_back(static_cast<uint8_t>(value >> shift));
    }
}

// The part of its times that lets even the longest recording, age included, fit into the time.
double Squeeze(const Sensor& sensor, uint32_t count, uint64_t nanos) {
    const double longest = (count + 1.0) * sensor.longest * static_cast<double>(sensor.unit_ns);
    return std::min(1.0, static_cast<double>(nanos) / longest);
}

// The values stand still once `moving_ns` have been recorded.
SensorBuffer Record(const Sensor& sensor, uint32_t count, uint64_t moving_ns, const Walk& walk,
                    Random& random, double squeeze) {
    const auto squeezed = [squeeze](uint64_t time) {
        return static_cast<uint64_t>(static_cast<double>(time) * squeeze);
    };
    SensorBuffer buffer{sensor.type, 0, {}};
    uint64_t span_ns = 0;  // from before the oldest record to the newest
    buffer.bytes.reserve(count * (1 + sensor.values) * sizeof(uint32_t));
    std::uniform_int_distribution<uint32_t> interval(sensor.shortest, sensor.longest);
    Values values{};
    for (uint32_t number = 0; number < count; ++number) {
        const uint32_t delta = interval(random);
        span_ns += delta * sensor.unit_ns;
        PutU32(buffer.bytes, static_cast<uint32_t>(squeezed(delta)));
        const Values sampled =
                sensor.sample({walk, static_cast<double>(span_ns) / 1e9, number, random});
        if (number == 0 || span_ns < moving_ns) values = sampled;
        for (size_t i = 0; i < sensor.values; ++i) {
            PutU32(buffer.bytes, std::bit_cast<uint32_t>(static_cast<float>(values.at(i))));
        }
    }
    std::uniform_int_distribution<uint64_t> age(0, sensor.shortest * sensor.unit_ns);
    buffer.age_ns = kLatency + squeezed(age(random));
    return buffer;
}

}  // namespace

const uint32_t kFewestRecords = Sum(&Sensor::events);

std::vector<uint32_t> SensorTypes() {
    std::vector<uint32_t> types;
    for (const Sensor& sensor : kSensors) types.push_back(sensor.type);
    return types;
}

uint64_t NanosSinceBoot() {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_nsec);
}

std::vector<SensorBuffer> RecordSensors(std::mt19937_64& random, uint32_t records,
                                        const StuckSensor& stuck) {
    const Walk walk(random);
    const auto counts = Share(records);
    const uint64_t recording = std::max(NanosSinceBoot(), kStart + kLatency) - kStart - kLatency;
    std::vector<SensorBuffer> buffers;
    buffers.reserve(kSensors.size());
    for (size_t i = 0; i < kSensors.size(); ++i) {
        const uint64_t moving_ns = kSensors[i].type == stuck.type
                                           ? uint64_t{stuck.after} * 1'000'000'000
                                           : std::numeric_limits<uint64_t>::max();
        buffers.push_back(Record(kSensors[i], counts.at(i), moving_ns, walk, random,
                                 Squeeze(kSensors[i], counts.at(i), recording)));
    }
    return buffers;
}
