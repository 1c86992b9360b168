#include "black_box.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include "sensor_kinds.h"

namespace reader {
namespace {

constexpr size_t kMostValues = 3;

// Takes apart a line from its front; each says whether that was there.
class Cursor {
  public:
    explicit Cursor(std::string_view line) : rest_(line) {}

    bool Skip(std::string_view text) {
        if (!rest_.starts_with(text)) return false;
        rest_.remove_prefix(text.size());
        return true;
    }
    template <typename Integer>
    bool Take(Integer& number) {
        const auto [end, error] =
                std::from_chars(rest_.data(), rest_.data() + rest_.size(), number);
        if (error != std::errc()) return false;
        rest_.remove_prefix(static_cast<size_t>(end - rest_.data()));
        return true;
    }
    bool Take(double& number) {
        if (TakeFixed(number)) return true;
        const auto [end, error] =
                std::from_chars(rest_.data(), rest_.data() + rest_.size(), number);
        if (error != std::errc()) return false;
        rest_.remove_prefix(static_cast<size_t>(end - rest_.data()));
        return true;
    }
    std::string_view rest() const { return rest_; }

  private:
    // "[-]DIGITS.SIX DIGITS" in few digits, as records have it: both numbers of the division are
    // exact, so its result is the nearest to what is printed, as from_chars' would be.
    bool TakeFixed(double& number) {
        constexpr size_t kMostDigits = 9;
        constexpr size_t kDecimals = 6;
        size_t at = rest_.starts_with('-') ? 1 : 0;
        const bool negative = at == 1;
        const size_t first = at;
        int64_t digits = 0;
        const auto is_digit = [this](size_t i) {
            return i < rest_.size() && rest_[i] >= '0' && rest_[i] <= '9';
        };
        for (; is_digit(at); ++at) {
            if (at - first == kMostDigits) return false;
            digits = digits * 10 + (rest_[at] - '0');
        }
        if (at == first || at == rest_.size() || rest_[at] != '.') return false;
        const size_t end = at + 1 + kDecimals;
        for (++at; at < end; ++at) {
            if (!is_digit(at)) return false;
            digits = digits * 10 + (rest_[at] - '0');
        }
        if (is_digit(at) || (at < rest_.size() && rest_[at] == 'e')) return false;
        const double magnitude = static_cast<double>(digits) / 1e6;
        number = negative ? -magnitude : magnitude;
        rest_.remove_prefix(at);
        return true;
    }

    std::string_view rest_;
};

// "1 (Accelerometer)" and then `end`, which is also what the line ends with where it is "*** ".
bool TakeSensor(Cursor& cursor, std::string_view end, Sensor& sensor) {
    if (!cursor.Take(sensor.number) || !cursor.Skip(" (")) return false;
    const size_t name_end = cursor.rest().find(end);
    if (name_end == std::string_view::npos) return false;
    sensor.name = cursor.rest().substr(0, name_end);
    cursor.Skip(sensor.name);
    return cursor.Skip(end);
}

bool TakeRecord(std::string_view line, Sensor& sensor) {
    Cursor cursor(line);
    uint64_t time = 0;
    std::array<double, kMostValues> values{};
    size_t count = 0;
    if (!cursor.Skip("Time: ") || !cursor.Take(time)) return false;
    const bool period = cursor.Skip(", Time On Wrist: ");
    if (period) {
        if (!cursor.Take(values[count++]) || cursor.rest() != "s") return false;
    } else {
        if (!cursor.Skip(", Value: ")) return false;
        const bool several = cursor.Skip("(");
        do {
            if (count == kMostValues || !cursor.Take(values[count++])) return false;
        } while (several && cursor.Skip(", "));
        if (cursor.rest() != (several ? ")" : "")) return false;
        if (count != (several ? kMostValues : 1)) return false;
    }
    if (sensor.values.empty()) {
        sensor.values.resize(count);
        sensor.periods = period;
    }
    if (sensor.values.size() != count || sensor.periods != period) return false;
    sensor.times.push_back(time);
    for (size_t i = 0; i < count; ++i) sensor.values[i].push_back(values[i]);
    return true;
}

}  // namespace

void BlackBox::TakeLine(std::string_view line, TextRange where) {
    constexpr std::string_view kStars = "*** ";
    Cursor cursor(line);
    Sensor sensor;
    sensor.text = where;
    bool known = true;
    if (cursor.Skip("Time: ")) {
        known = !sensors.empty() && TakeRecord(line, sensors.back());
        if (known) sensors.back().text.end = where.end;
    } else if (cursor.Skip("*** Sensor ") && TakeSensor(cursor, ") ***", sensor)) {
        sensors.push_back(std::move(sensor));
    } else if (cursor.Skip("Skipping Sensor ") && TakeSensor(cursor, "): ", sensor)) {
        sensor.skipped = cursor.rest();
        sensors.push_back(std::move(sensor));
    } else if (cursor.Skip("Total Time On Wrist: ")) {
        double seconds = 0;
        known = !sensors.empty() && cursor.Take(seconds) && cursor.rest() == " seconds";
        if (known) {
            sensors.back().total_worn = seconds;
            sensors.back().text.end = where.end;
        }
    } else if (line.starts_with(kStars)) {
        if (failure.empty()) failure = line.substr(kStars.size());
    } else {
        known = false;
    }
    if (!known && odd_lines++ == 0) odd_line = where;
}

void BlackBox::End(uint64_t at) {
    text.end = at;
    const uint64_t latest = newest();
    for (Sensor& sensor : sensors) sensor.statistics = Measure(sensor, latest);
}

uint64_t BlackBox::newest() const {
    uint64_t latest = 0;
    for (const Sensor& sensor : sensors) {
        if (!sensor.times.empty() && KindOf(sensor).steady()) {
            latest = std::max(latest, sensor.times.back());
        }
    }
    return latest;
}

}  // namespace reader
