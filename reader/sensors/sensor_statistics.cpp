#include "sensor_statistics.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "clock_time.h"
#include "sensor_kinds.h"

namespace reader {
namespace {

constexpr double kSecond = 1e9;
constexpr double kGapSteps = 10;
// A sensor at rest repeats a value by chance, but not for so long.
constexpr size_t kFrozenRecords = 10;
constexpr double kFrozenSeconds = 2;

// From one record to the next, in seconds. Times that go back are no step: the service's own wrap.
double Step(const Sensor& sensor, size_t i) {
    const uint64_t before = sensor.times[i - 1];
    const uint64_t after = sensor.times[i];
    return after < before ? 0 : static_cast<double>(after - before) / kSecond;
}

double MedianStep(const Sensor& sensor) {
    std::vector<double> steps;
    steps.reserve(sensor.times.size());
    for (size_t i = 1; i < sensor.times.size(); ++i) steps.push_back(Step(sensor, i));
    if (steps.empty()) return 0;
    const auto middle = steps.begin() + static_cast<std::ptrdiff_t>(steps.size() / 2);
    std::ranges::nth_element(steps, middle);
    return *middle;
}

bool SameValues(const Sensor& sensor, size_t one, size_t other) {
    return std::ranges::all_of(sensor.values, [&](const std::vector<double>& column) {
        const double a = column[one];
        const double b = column[other];
        return a == b || (std::isnan(a) && std::isnan(b));
    });
}

void FindFrozen(const Sensor& sensor, SensorStatistics& statistics) {
    const size_t count = sensor.times.size();
    size_t first = 0;
    for (size_t i = 1; i <= count; ++i) {
        if (i < count && SameValues(sensor, first, i)) continue;
        const SensorStatistics::Period run{sensor.times[first], sensor.times[i - 1]};
        const bool whole = i - first == count;
        const bool long_enough = i - first >= kFrozenRecords && run.begin <= run.end &&
                                 run.seconds() >= kFrozenSeconds;
        const bool to_end = i == count;
        if (long_enough && !whole &&
            (to_end || !statistics.frozen || run.seconds() > statistics.frozen->seconds())) {
            statistics.frozen = run;
            statistics.frozen_to_end = to_end;
        }
        statistics.still = statistics.still || (whole && count > 1);
        first = i;
    }
}

// How far the sensor's newest record is behind that of the others that record all the time.
double Silence(const BlackBox& black_box, const Sensor& sensor) {
    uint64_t newest = 0;
    for (const Sensor& other : black_box.sensors) {
        if (KindOf(other).steady() && !other.times.empty())
            newest = std::max(newest, other.times.back());
    }
    const uint64_t own = sensor.times.back();
    return newest <= own ? 0 : static_cast<double>(newest - own) / kSecond;
}

std::string Moment(uint64_t nanoseconds, std::optional<int64_t> boot_seconds) {
    if (boot_seconds && nanoseconds / 1'000'000'000 < uint64_t{1} << 40) {
        return FormatTime(*boot_seconds, nanoseconds);
    }
    std::array<char, 40> text;
    std::snprintf(text.data(), text.size(), "%.3f s after boot",
                  static_cast<double>(nanoseconds) / kSecond);
    return text.data();
}

std::string Seconds(double seconds) {
    std::array<char, 400> text;
    std::snprintf(text.data(), text.size(), "%.*f s", seconds < 10 ? 2 : 1, seconds);
    return text.data();
}

}  // namespace

SensorStatistics Measure(const BlackBox& black_box, const Sensor& sensor) {
    SensorStatistics statistics;
    const size_t count = sensor.times.size();
    statistics.records = count;
    if (count == 0) return statistics;
    if (sensor.times.back() > sensor.times.front()) {
        statistics.span = static_cast<double>(sensor.times.back() - sensor.times.front()) / kSecond;
        statistics.rate = static_cast<double>(count - 1) / statistics.span;
    }
    statistics.median_step = MedianStep(sensor);
    if (!KindOf(sensor).steady()) return statistics;

    const double longest = kGapSteps * statistics.median_step;
    for (size_t i = 1; i < count; ++i) {
        if (Step(sensor, i) > longest) {
            statistics.gaps.push_back({sensor.times[i - 1], sensor.times[i]});
        }
    }
    FindFrozen(sensor, statistics);
    const double silent = Silence(black_box, sensor);
    if (count > 1 && silent > std::max(1.0, longest)) statistics.silent = silent;
    return statistics;
}

std::string SensorTrouble(const Sensor& sensor, const SensorStatistics& statistics,
                          std::optional<int64_t> boot_seconds) {
    if (!sensor.skipped.empty()) return "skipped: " + sensor.skipped;
    std::string trouble;
    const auto add = [&trouble](const std::string& what) {
        trouble += (trouble.empty() ? "" : ", ") + what;
    };
    if (statistics.still) add("stood still, all values equal");
    if (statistics.frozen) {
        const SensorStatistics::Period& frozen = *statistics.frozen;
        add("froze at " + Moment(frozen.begin, boot_seconds) +
            (statistics.frozen_to_end ? "" : " for " + Seconds(frozen.seconds())));
    }
    if (statistics.silent > 0) {
        add("silent for the last " + Seconds(statistics.silent));
    }
    if (!statistics.gaps.empty()) {
        const auto longest =
                std::ranges::max_element(statistics.gaps, {}, &SensorStatistics::Period::seconds);
        add(statistics.gaps.size() == 1
                    ? "a gap of " + Seconds(longest->seconds()) + " at " +
                              Moment(longest->begin, boot_seconds)
                    : std::to_string(statistics.gaps.size()) + " gaps, the longest of " +
                              Seconds(longest->seconds()) + " at " +
                              Moment(longest->begin, boot_seconds));
    }
    return trouble;
}

}  // namespace reader
