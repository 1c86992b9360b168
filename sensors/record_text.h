#pragma once

#include <cstddef>
#include <cstdint>

#include "report_writer.h"
#include "sensor_black_box_buffer.h"
#include "sensor_types.h"

namespace tev::dumpstate {

// Writes the float, given by its bits, exactly as printf's "%.6f" writes it widened to double, and
// returns the end of the text, which has at most kLongestFloat characters and no terminator.
// Integers alone for all but huge values, so the text is the same on every machine.
inline constexpr size_t kLongestFloat = 47;  // sign, 39 digits, point, 6 digits
char* FormatFloat(char* out, uint32_t bits);

// Writes the records of a complete buffer, whose newest one is of that time, in nanoseconds.
void WriteRecords(ReportWriter& report, const SensorType& type, const SensorBlackBoxBuffer& buffer,
                  uint64_t newest_nanos);

}  // namespace tev::dumpstate
