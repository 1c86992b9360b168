#pragma once

#include <string>

#include "rules.h"
#include "sink.h"

namespace reader {

// Writes a report as records, one JSON object a line (doc/records.md), each as soon as the report
// has told it, so that the first lines come before the input has ended. "-" is standard input. A
// line is shorter than 64 MiB: a text or a sensor's records that would make it longer are cut.
// Memory is the records of the black box, and what is wrong. Returns "" or a sentence: the file
// can't be read, is empty, or is no board report.
std::string WriteJson(const std::string& file, const Rules& rules, const Sink& sink);

}  // namespace reader
