#pragma once

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "facts.h"
#include "report_parser.h"
#include "section.h"
#include "source.h"

namespace reader {

// What is counted of a report's sections while they end.
struct Tally {
    size_t sections = 0;
    size_t failed = 0;      // with a failure
    size_t unfinished = 0;  // without a footer
    size_t commands = 0;
    size_t without_program = 0;  // commands whose program is not there
    double seconds = 0;          // in all of them
    std::bitset<kServiceSections> seen;
    std::string last;     // the title of the last
    std::string slowest;  // and of the slowest that is complete, and its seconds
    double slowest_seconds = -1;
    // In the sections between the black box and the one that tells the time; nothing when not both
    // have come in this order.
    std::optional<double> seconds_before_now;

    void Add(const Section& section);
    // What the service always writes and is not there, where most of it is.
    std::vector<std::string_view> Missing() const;
    // Whether nearly every command's program is missing: a host that is no wearable.
    bool IsHost() const;
};

// What a report says, without its sections' texts: those are read from `source` when they are
// shown.
struct Report {
    std::string file;  // as it was named; "-" for standard input
    uint64_t size = 0;
    std::optional<bool> verbose;             // nothing when it doesn't say
    std::vector<Section> sections;           // as they stand in the report
    std::vector<BlackBox> black_boxes;       // more than one where a file holds several reports
    std::vector<TextRange> outside;          // lines outside of sections and black box
    std::vector<ReportParser::Loss> losses;  // the first thousand
    size_t lost = 0;                         // how many there are
    std::vector<Fact> facts;
    Tally tally;
    bool has_first_line = false;
    bool at_end = false;  // what the service writes last has come and is complete
    bool cut = false;     // the last line lacks its end
    std::shared_ptr<Source> source;

    // Whether its identifiers were replaced: a fact that would be one shows a stand-in, "serial-1".
    bool redacted() const;
    // Null when the report doesn't say.
    const Fact* FindFact(std::string_view key) const;
    // Seconds since 1970 in the device's local time, when the device booted, to the second; a
    // sensor's time of day is this plus its nanoseconds.
    std::optional<int64_t> BootSeconds() const;
    // From the boot until the report was made, to a second or two.
    std::optional<int64_t> UptimeSeconds() const;
};

// Fills a report, which outlives it, with what a parser tells.
class ReportBuilder {
  public:
    // What is kept of a report besides what it is judged by: its troubled sections, what its
    // sensors are like.
    enum class Keep { kEverything, kWhatIsJudged };

    explicit ReportBuilder(Report& report, Keep keep = Keep::kEverything)
        : report_(report), keep_(keep) {}

    ReportParser::Listener Listener();
    void Add(Section&& section);
    void Add(BlackBox&& black_box);
    // After the parser's Finish(): what can be said only at the end.
    void Finish(const ReportParser& parser);

  private:
    Report& report_;
    const Keep keep_;
    std::optional<double> since_black_box_;  // seconds in sections
};

// "", or the sentence for a file of that name which is no board report.
std::string WhyNoReport(const Report& report, const std::string& name);
// What a file is, by its first bytes, that is given in a report's place: " is a gzip file: gunzip
// it first"; "" where it may be a report.
std::string_view WhatElse(std::string_view begin);

// Reads the file, "-" for standard input, to its end. With `texts` its source can be read again.
// `look` is shown each section before it is added, while report.source can read its text. Returns
// "" or a sentence: it can't be read, is empty, or is no board report.
std::string ReadReport(const std::string& file, bool texts, Report& report,
                       const std::function<void(Section&)>& look = {});

}  // namespace reader
