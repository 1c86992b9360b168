#include "record_packer.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

namespace reader {
namespace {

// So far apart times may be that a script's numbers still hold all that is made of them exactly.
constexpr uint64_t kFarthest = uint64_t{1} << 50;

template <typename Integer>
void AppendLittleEndian(std::string& bytes, Integer value) {
    for (size_t i = 0; i < sizeof(value); ++i) {
        bytes += static_cast<char>(value >> (8 * i) & 0xff);
    }
}

void AppendVariable(std::string& bytes, uint64_t value) {
    for (; value > 0x7f; value >>= 7) bytes += static_cast<char>(0x80 | (value & 0x7f));
    bytes += static_cast<char>(value);
}

// What was printed was a float once, but who knows who printed it.
float ToFloat(double value) {
    constexpr double kMost = std::numeric_limits<float>::max();
    if (std::abs(value) <= kMost || std::isnan(value)) return static_cast<float>(value);
    return std::copysign(std::numeric_limits<float>::infinity(),
                         static_cast<float>(value > 0 ? 1 : -1));
}

int64_t Signed(uint64_t later, uint64_t earlier) {
    return static_cast<int64_t>(later - earlier);
}

// The largest unit that all times are whole numbers of, counted from the first.
uint64_t UnitOf(const std::vector<uint64_t>& times) {
    uint64_t unit = 1'000'000;
    for (const uint64_t time : times) {
        while ((time - times.front()) % unit != 0) unit /= 1000;
        if (unit == 1) break;
    }
    return unit;
}

}  // namespace

PackedRecords PackRecords(const Sensor& sensor) {
    const std::vector<uint64_t>& times = sensor.times;
    PackedRecords packed;
    packed.first = times.front();
    packed.bytes.reserve(times.size() * (4 * sensor.values.size() + 4));
    for (const std::vector<double>& column : sensor.values) {
        for (const double value : column) {
            AppendLittleEndian(packed.bytes, std::bit_cast<uint32_t>(ToFloat(value)));
        }
    }

    const auto [least, greatest] = std::ranges::minmax(times);
    packed.plain_times = greatest - least >= kFarthest;
    if (packed.plain_times) {
        for (const uint64_t time : times) {
            const double distance = time >= packed.first
                                            ? static_cast<double>(time - packed.first)
                                            : -static_cast<double>(packed.first - time);
            AppendLittleEndian(packed.bytes, std::bit_cast<uint64_t>(distance));
        }
        return packed;
    }
    // A clock that runs backwards has steps below zero, which no larger unit is worth looking for.
    if (std::ranges::is_sorted(times)) packed.unit = UnitOf(times);
    const auto unit = static_cast<int64_t>(packed.unit);
    uint64_t before = packed.first;
    int64_t expected = 0;
    for (const uint64_t time : times) {
        const int64_t surprise = Signed(time, before) / unit - expected;
        AppendVariable(packed.bytes, static_cast<uint64_t>(surprise) << 1 ^
                                             static_cast<uint64_t>(surprise < 0 ? -1 : 0));
        expected += surprise / 8;
        before = time;
    }
    return packed;
}

}  // namespace reader
