#include "record_text.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstring>
#include <string_view>

#include "little_endian.h"

namespace tev::dumpstate {
namespace {

// The parts of an IEEE float: sign, 8 bits of exponent, 23 of fraction.
constexpr uint32_t kFractionBits = 23;
constexpr uint32_t kFraction = (uint32_t{1} << kFractionBits) - 1;
constexpr uint32_t kInfiniteExponent = 0xFF;
constexpr int kExponentBias = 127 + static_cast<int>(kFractionBits);
constexpr uint32_t kOne = std::bit_cast<uint32_t>(1.0F);

constexpr uint64_t kMillion = 1000000;
constexpr float kNanosPerSecond = 1e9F;

char* Copy(char* out, std::string_view text) {
    return std::ranges::copy(text, out).out;
}

char* FormatInteger(char* out, uint64_t value) {
    constexpr ptrdiff_t kMostDigits = 20;
    return std::to_chars(out, out + kMostDigits, value).ptr;
}

// value / 2^shift, to the nearest integer and from the middle to the even one; shift is above 0.
uint64_t ShiftRounded(uint64_t value, uint32_t shift) {
    if (shift > 63) return 0;  // what values there are is less than half
    const uint64_t whole = value >> shift;
    const uint64_t rest = value - (whole << shift);
    const uint64_t half = uint64_t{1} << (shift - 1);
    return whole + (rest > half || (rest == half && whole % 2 == 1) ? 1 : 0);
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
    uint32_t Value(size_t index, size_t which) const {
        return LoadU32(At(index) + sizeof(uint32_t) * (1 + which));
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
        const bool now_worn = records.Value(i, 0) == kOne;
        if (now_worn && !worn) since = time;
        if (!now_worn && worn) {
            const float nanos = Single(static_cast<float>(time - since));
            const float seconds = Single(nanos / kNanosPerSecond);
            char* out = FormatInteger(Copy(report.BeginLine(), "Time: "), since);
            out = FormatFloat(Copy(out, ", Time On Wrist: "), std::bit_cast<uint32_t>(seconds));
            report.EndLine(Copy(out, "s\n"));
            total = Single(total + seconds);
        }
        worn = now_worn;
    }
    if (total != 0) {
        char* const out = Copy(report.BeginLine(), "Total Time On Wrist: ");
        report.EndLine(Copy(FormatFloat(out, std::bit_cast<uint32_t>(total)), " seconds\n"));
    }
}

}  // namespace

char* FormatFloat(char* out, uint32_t bits) {
    if (bits >> 31 != 0) *out++ = '-';
    const uint32_t biased = (bits >> kFractionBits) & kInfiniteExponent;
    const uint32_t fraction = bits & kFraction;
    if (biased == kInfiniteExponent) return Copy(out, fraction == 0 ? "inf" : "nan");

    // The magnitude is mantissa * 2^exponent. Zero and the denormals have no implied leading bit
    // and an exponent of their own, but are so far below half a millionth that this changes
    // nothing.
    const uint32_t mantissa = fraction | (kFraction + 1);
    const int exponent = static_cast<int>(biased) - kExponentBias;
    constexpr int kMostShift = 64 - static_cast<int>(kFractionBits + 1);
    if (exponent > kMostShift) {
        const auto magnitude = std::bit_cast<float>(bits & ~(uint32_t{1} << 31));
        return std::to_chars(out, out + kLongestFloat, double{magnitude}, std::chars_format::fixed,
                             6)
                .ptr;
    }
    if (exponent >= 0) return Copy(FormatInteger(out, uint64_t{mantissa} << exponent), ".000000");

    // 24 bits times a million are 44: nothing is lost before the one rounding.
    const uint64_t millionths = ShiftRounded(mantissa * kMillion, static_cast<uint32_t>(-exponent));
    out = FormatInteger(out, millionths / kMillion);
    // A million more keeps the leading zeros; its digit gives way to the point.
    char* const end = FormatInteger(out, kMillion + millionths % kMillion);
    *out = '.';
    return end;
}

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
