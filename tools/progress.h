#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "report_reader.h"

// Shows a report's progress on standard output: a plain line for each section as it ends, and on a
// terminal also the one that is running, on a last line that is redrawn.
class Progress {
  public:
    Progress();

    void Begin(std::string_view title);
    void End(const ReportReader::Section& section);
    // Redraws the last line, if this is a terminal.
    void Redraw(uint64_t bundle_size);
    // Takes the last line away.
    void Clear();

    int sections() const { return sections_; }
    int failed() const { return failed_; }
    bool all_finished() const { return unfinished_ == 0; }

  private:
    const bool live_;
    const bool colour_;
    std::string running_;
    std::chrono::steady_clock::time_point since_{};
    int sections_ = 0;
    int failed_ = 0;
    int unfinished_ = 0;
};

// "1.5 MiB"
std::string HumanSize(uint64_t bytes);
