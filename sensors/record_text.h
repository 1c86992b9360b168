#pragma once

#include <cstdint>

#include "report_writer.h"
#include "sensor_black_box_buffer.h"
#include "sensor_types.h"

namespace tev::dumpstate {

// Writes the records of a complete buffer, whose newest one is of that time, in nanoseconds.
void WriteRecords(ReportWriter& report, const SensorType& type, const SensorBlackBoxBuffer& buffer,
                  uint64_t newest_nanos);

}  // namespace tev::dumpstate
