#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "report.h"
#include "rules.h"
#include "verdict.h"
#include "watch.h"

// Shows a report's progress on standard error: a plain line for each section and the black box as
// they end, and on a terminal also the one that is running, on a last line that is redrawn. What it
// says at the end is what the report is judged to be.
class Progress {
  public:
    // The rules to judge by outlive it.
    explicit Progress(const reader::Rules& rules);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // What tells it all; outlived by this.
    reader::ReportParser::Listener Listener();
    // After the parser's Finish().
    void Finish(const reader::ReportParser& parser);
    // What the report was found to be when it was read again.
    void Take(reader::Verdict&& verdict) { verdict_ = std::move(verdict); }
    // Redraws the last line, if this is a terminal.
    void Redraw(uint64_t bundle_size);
    // Takes the last line away.
    void Clear();

    size_t sections() const { return report_.tally.sections; }
    // After Finish(): "" or what a report that was accepted lacks.
    std::string WhatIsMissing() const;
    // "55 sections, 2 failed or timed out (VENDOR PROPERTIES, ...); black box: 7 sensors, ...; 2
    // errors"
    std::string Verdict() const;
    // "5 errors, 12 warnings; the worst: The battery is overheating"; "Nothing is wrong"
    std::string Findings() const;
    // "" or a sentence about what was asked, when that is no wearable.
    std::string Host() const { return reader::HostSentence(report_.tally); }

  private:
    void End(const reader::Section& section);
    void EndBlackBox();
    void Line(double seconds, const std::string& what, const std::string& trouble);
    double SecondsSince() const;

    const bool live_;
    const bool colour_;
    std::string running_;
    std::chrono::steady_clock::time_point since_ = std::chrono::steady_clock::now();
    reader::Report report_;
    reader::Watch watch_;
    reader::ReportBuilder builder_{report_, reader::ReportBuilder::Keep::kWhatIsJudged};
    reader::Verdict verdict_;
};
