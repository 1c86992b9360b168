#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "section.h"
#include "summary.h"

// Shows a report's progress on standard error: a plain line for each section and the black box as
// they end, and on a terminal also the one that is running, on a last line that is redrawn.
class Progress {
  public:
    Progress();

    void Begin(std::string_view title);
    void End(const reader::Section& section);
    void End(const reader::BlackBox& black_box);
    // Redraws the last line, if this is a terminal.
    void Redraw(uint64_t bundle_size);
    // Takes the last line away.
    void Clear();

    int sections() const { return sections_; }
    bool all_finished() const { return unfinished_ == 0; }
    // "55 sections, 2 failed or timed out (VENDOR PROPERTIES, ...); black box: 7 sensors, ..."
    std::string Verdict() const;
    // "" or a sentence about what was asked, when that is no wearable.
    std::string Host() const { return host_.Sentence(); }

  private:
    void Line(double seconds, const std::string& what, const std::string& trouble);
    double SecondsSince() const;

    const bool live_;
    const bool colour_;
    std::string running_;
    std::chrono::steady_clock::time_point since_ = std::chrono::steady_clock::now();
    int sections_ = 0;
    int unfinished_ = 0;
    std::vector<std::string> failed_;  // titles
    reader::HostCheck host_;
    std::string black_box_ = "not in the report";
};
