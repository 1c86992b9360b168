#include "record_text.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstddef>
#include <string_view>

#include "little_endian.h"

namespace tev::dumpstate {
namespace {

constexpr float kNanosPerSecond = 1e9F;

char* Copy(char* out, std::string_view text) {
    return std::ranges::copy(text, out).out;
}

char* FormatInteger(char* out, uint64_t value) {
    constexpr ptrdiff_t kMostDigits = 20;
    return std::to_chars(out, out + kMostDigits, value).ptr;
}

// As printf's "%.6f".
char* FormatFloat(char* out, float value) {
    constexpr ptrdiff_t kMostCharacters = 47;  // sign, 39 digits, point, 6 digits
    return std::to_chars(out, out + kMostCharacters, double{value}, std::chars_format::fixed, 6)
            .ptr;
}

// x87 registers hold more than single precision until a value is stored.
float Single(float value) {
    const volatile float stored = value;
    return stored;
}

struct Records {
    const int8_t* first;
    size_t count;
    size_t size;
    uint64_t unit_nanos;

    const int8_t* At(size_t index) const { return first + index * size; }
    uint64_t Delta(size_t index) const { return LoadU32(At(index)) * unit_nanos; }
    float Value(size_t index, size_t which) const {
        return std::bit_cast<float>(LoadU32(At(index) + sizeof(uint32_t) * (1 + which)));
    }
};

void WriteValues(ReportWriter& report, const Records& records, size_t values, uint64_t time) {
    for (size_t i = 0; i < records.count; ++i) {
        time += records.Delta(i);
        char* out = Copy(report.BeginLine(), "Time: ");
        out = Copy(FormatInteger(out, time), ", Value: ");
        if (values > 1) *out++ = '(';
        out = FormatFloat(out, records.Value(i, 0));
        for (size_t which = 1; which < values; ++which) {
            out = FormatFloat(Copy(out, ", "), records.Value(i, which));
        }
        if (values > 1) *out++ = ')';
        *out++ = '\n';
        report.EndLine(out);
    }
}

void WritePeriods(ReportWriter& report, const Records& records, uint64_t time) {
    bool worn = false;
    uint64_t since = 0;
    float total = 0;
    for (size_t i = 0; i < records.count; ++i) {
        time += records.Delta(i);
        const bool now_worn = records.Value(i, 0) == 1.0F;
        if (now_worn && !worn) since = time;
        if (!now_worn && worn) {
            const float nanos = Single(static_cast<float>(time - since));
            const float seconds = Single(nanos / kNanosPerSecond);
            char* out = FormatInteger(Copy(report.BeginLine(), "Time: "), since);
            out = FormatFloat(Copy(out, ", Time On Wrist: "), seconds);
            report.EndLine(Copy(out, "s\n"));
            total = Single(total + seconds);
        }
        worn = now_worn;
    }
    if (total != 0) {
        char* const out = Copy(report.BeginLine(), "Total Time On Wrist: ");
        report.EndLine(Copy(FormatFloat(out, total), " seconds\n"));
    }
}

}  // namespace

void WriteRecords(ReportWriter& report, const SensorType& type, const SensorBlackBoxBuffer& buffer,
                  uint64_t newest_nanos) {
    const Records records{buffer.Buffer(), buffer.Size() / type.record_size(), type.record_size(),
                          type.unit_nanos};
    // What is known is when the newest record was; all times wrap alike.
    uint64_t time = newest_nanos;
    for (size_t i = 0; i < records.count; ++i) time -= records.Delta(i);
    if (type.on_wrist) {
        WritePeriods(report, records, time);
    } else {
        WriteValues(report, records, type.values, time);
    }
}

}  // namespace tev::dumpstate
