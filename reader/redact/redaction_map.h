#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "changes.h"
#include "sink.h"
#include "values.h"

namespace reader {

// What undoes redactions, and gives a value the same stand-in in the next one. One JSON object:
//
//   {"redaction":1,
//    "values":[{"kind":"serial","value":"...","stand_in":"serial-1"}, ...],
//    "files":[{"size":N,"complete":true,"spellings":[["written","original"], ...],
//              "places":[BYTES BETWEEN, SPELLING, ...]}, ...]}
//
// Bytes that are no ASCII are the characters of their number. Returns "" or what is wrong with it.
std::string ParseRedactionMap(std::string_view json, Values& values, std::vector<Changes>& files);
void FormatRedactionMap(const Values& values, const std::vector<Changes>& files, const Sink& sink);

}  // namespace reader
