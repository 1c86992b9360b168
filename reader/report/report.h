#pragma once

#include <cstdint>
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

// What a report says, without its sections' texts: those are read from `source` when they are
// shown.
struct Report {
    std::string file;  // as it was named; "-" for standard input
    uint64_t size = 0;
    bool verbose = false;
    std::vector<Section> sections;      // as they stand in the report
    std::optional<BlackBox> black_box;  // nothing when the report has no such block
    std::vector<TextRange> outside;     // lines outside of sections and black box
    std::vector<Fact> facts;
    bool cut = false;  // the last line lacks its end
    std::shared_ptr<Source> source;

    size_t failed() const;  // sections with a failure
    bool complete() const;  // it has sections, they all end, and so does the last line
    // "" when nothing is wrong with the black box.
    std::string BlackBoxTrouble() const;
    // Whether its identifiers were replaced: a fact that would be one shows a stand-in, "serial-1".
    bool redacted() const;
    // Null when the report doesn't say.
    const Fact* FindFact(std::string_view key) const;
    // Seconds since 1970 in the device's local time, when the device booted; a sensor's time of day
    // is this plus its nanoseconds.
    std::optional<int64_t> BootSeconds() const;
};

// Fills a report, which outlives it, with what a parser tells.
class ReportBuilder {
  public:
    explicit ReportBuilder(Report& report) : report_(report) {}

    ReportParser::Listener Listener();
    void Add(Section&& section);
    void Add(BlackBox&& black_box);
    // After the parser's Finish(): the facts, and what else can be said only at the end.
    void Finish(const ReportParser& parser);
    // "", or the sentence for a file of that name in which the parser found nothing.
    std::string WhyNoReport(const std::string& name) const;

  private:
    Report& report_;
    bool says_verbose_ = false;
};

// Reads the file, "-" for standard input, to its end. With `texts` its source can be read again.
// Returns "" or a sentence: it can't be read, is empty, or is no board report.
std::string ReadReport(const std::string& file, bool texts, Report& report);

}  // namespace reader
