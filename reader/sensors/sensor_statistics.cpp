#include "sensor_statistics.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "black_box.h"
#include "sensor_kinds.h"

namespace reader {
namespace {

using Period = SensorStatistics::Period;

constexpr double kSecond = 1e9;
// A sensor at rest repeats a value by chance, but not for so long; one of its axes may for longer.
constexpr size_t kFrozenRecords = 10;
constexpr double kFrozenSeconds = 2;
constexpr double kStuckSeconds = 10;

// From one record to the next. The service counts times back from the newest, and those before the
// boot wrap: a step across that is like any other.
struct Step {
    uint64_t size;
    bool back;
};
Step StepTo(const Sensor& sensor, size_t i) {
    const uint64_t forth = sensor.times[i] - sensor.times[i - 1];
    const uint64_t back = sensor.times[i - 1] - sensor.times[i];
    return forth <= back ? Step{forth, false} : Step{back, true};
}

double MedianStep(const Sensor& sensor) {
    std::vector<uint64_t> steps;
    steps.reserve(sensor.times.size());
    for (size_t i = 1; i < sensor.times.size(); ++i) {
        const Step step = StepTo(sensor, i);
        if (!step.back) steps.push_back(step.size);
    }
    const auto middle_of = [&steps] {
        const auto middle = steps.begin() + static_cast<std::ptrdiff_t>(steps.size() / 2);
        std::ranges::nth_element(steps, middle);
        return *middle;
    };
    if (steps.empty()) return 0;
    uint64_t median = middle_of();
    if (median == 0) {
        std::erase(steps, 0U);
        if (!steps.empty()) median = middle_of();
    }
    return static_cast<double>(median) / kSecond;
}

void FindSteps(const Sensor& sensor, SensorStatistics& statistics) {
    const double longest = SensorStatistics::kGapSteps * statistics.median_step * kSecond;
    for (size_t i = 1; i < sensor.times.size(); ++i) {
        const Step step = StepTo(sensor, i);
        if (step.back) {
            ++statistics.jumps;
            if (statistics.jumps == 1 ||
                static_cast<double>(step.size) / kSecond > statistics.longest_jump.seconds()) {
                statistics.longest_jump = {sensor.times[i], sensor.times[i - 1]};
            }
        } else if (step.size == 0) {
            ++statistics.repeated;
        } else if (static_cast<double>(step.size) > longest) {
            ++statistics.gaps;
            if (statistics.gaps == 1 ||
                static_cast<double>(step.size) / kSecond > statistics.longest_gap.seconds()) {
                statistics.longest_gap = {sensor.times[i - 1], sensor.times[i]};
            }
        }
    }
}

bool SameValue(double a, double b) {
    return a == b || (std::isnan(a) && std::isnan(b));
}

bool SameValues(const Sensor& sensor, size_t one, size_t other) {
    return std::ranges::all_of(sensor.values, [&](const std::vector<double>& column) {
        return SameValue(column[one], column[other]);
    });
}

bool LongEnough(size_t records, Period period, double seconds) {
    return records >= kFrozenRecords && period.begin <= period.end && period.seconds() >= seconds;
}

void FindFrozen(const Sensor& sensor, SensorStatistics& statistics) {
    const size_t count = sensor.times.size();
    size_t first = 0;
    for (size_t i = 1; i <= count; ++i) {
        if (i < count && SameValues(sensor, first, i)) continue;
        const Period run{sensor.times[first], sensor.times[i - 1]};
        const bool whole = i - first == count;
        const bool to_end = i == count;
        if (LongEnough(i - first, run, kFrozenSeconds) && !whole &&
            (to_end || !statistics.frozen || run.seconds() > statistics.frozen->seconds())) {
            statistics.frozen = run;
            statistics.frozen_to_end = to_end;
        }
        statistics.still = statistics.still || (whole && count > 1);
        first = i;
    }
}

void FindStuck(const Sensor& sensor, SensorStatistics& statistics) {
    if (statistics.still || statistics.frozen_to_end) return;
    const size_t count = sensor.times.size();
    for (size_t c = 0; c < sensor.values.size() && sensor.values.size() > 1; ++c) {
        const std::vector<double>& column = sensor.values[c];
        size_t first = count - 1;
        while (first > 0 && SameValue(column[first - 1], column[count - 1])) --first;
        if (!LongEnough(count - first, {sensor.times[first], sensor.times[count - 1]},
                        first == 0 ? kFrozenSeconds : kStuckSeconds)) {
            continue;
        }
        if (statistics.stuck_columns == 0) statistics.stuck_since = sensor.times[first];
        statistics.stuck_columns |= 1U << c;
    }
}

uint64_t Newest(const Sensor& sensor) {
    constexpr uint64_t kMost = ~uint64_t{0} >> 1;
    constexpr double kMostSeconds = 1e9;
    const bool periods = KindOf(sensor).shape == SensorKind::Shape::kWear;
    uint64_t newest = 0;
    for (size_t i = 0; i < sensor.times.size(); ++i) {
        if (sensor.times[i] > kMost) continue;
        const double seconds = periods ? sensor.values[0][i] : 0;
        const bool believed = seconds > 0 && seconds < kMostSeconds;
        newest = std::max(
                newest, sensor.times[i] + static_cast<uint64_t>(believed ? seconds * kSecond : 0));
    }
    return newest;
}

}  // namespace

SensorStatistics Measure(const Sensor& sensor, uint64_t newest) {
    SensorStatistics statistics;
    const size_t count = sensor.times.size();
    statistics.records = count;
    if (count == 0) return statistics;
    statistics.newest = Newest(sensor);
    const uint64_t span = sensor.times.back() - sensor.times.front();
    if (span > 0 && span <= ~span) {
        statistics.span = static_cast<double>(span) / kSecond;
        statistics.rate = static_cast<double>(count - 1) / statistics.span;
    }
    statistics.median_step = MedianStep(sensor);
    if (!KindOf(sensor).steady()) return statistics;

    FindSteps(sensor, statistics);
    FindFrozen(sensor, statistics);
    FindStuck(sensor, statistics);
    const uint64_t own = sensor.times.back();
    const double silent = newest <= own ? 0 : static_cast<double>(newest - own) / kSecond;
    const double longest = SensorStatistics::kGapSteps * statistics.median_step;
    if (count > 1 && silent > std::max(1.0, longest)) statistics.silent = silent;
    return statistics;
}

}  // namespace reader
