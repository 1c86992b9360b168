#pragma once

#include <string>
#include <vector>

#include "output_file.h"
#include "page.h"
#include "rules.h"

// What boardreport does with finished reports. Each returns the exit status and says on standard
// error what is wrong. "-" is standard input, or output.

inline constexpr int kBadUsage = 2;
inline constexpr int kUnreadable = 3;

// Prints what is wrong with the report, or what differs between several: 0 when nothing is.
int PrintSummary(const std::vector<std::string>& files, const reader::Rules& rules);

// Prints each report as records.
int PrintRecords(const std::vector<std::string>& files, const reader::Rules& rules);

// Writes the page that shows the reports.
int WritePageFile(const std::vector<std::string>& files, const reader::Rules& rules,
                  const reader::PageOptions& options, const std::string& output);

// The same into a file that is open already. The page of what is not whole takes no older one's
// place.
int WritePageFile(const std::vector<std::string>& files, const reader::Rules& rules,
                  const reader::PageOptions& options, OutputFile& output, bool whole);

// Whether it can be read and is no folder; what keeps it from that has been said.
bool Readable(const std::string& file);

// Reads a report and judges it by the rules; "" or the sentence.
std::string ReadAndJudge(const std::string& file, const reader::Rules& rules, bool texts,
                         reader::Report& report, reader::Verdict& verdict);
