#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace reader {

// Bytes of a report, by offset.
struct TextRange {
    uint64_t begin = 0;
    uint64_t end = 0;
    uint64_t size() const { return end - begin; }
    bool operator==(const TextRange&) const = default;
};

struct Section {
    enum class Kind { kCommand, kFile };

    std::string title;
    std::string detail;  // argv joined by blanks, or the path
    Kind kind = Kind::kFile;
    double seconds = 0;     // 0 while no footer has come
    std::string failure;    // without the asterisks; "" when nothing went wrong
    bool complete = false;  // its footer has come
    // A command's output exactly, without the one newline that the service puts after it; a file's
    // bytes as they stand before the failure line or the footer. Of a section without a footer,
    // what there is before the next section.
    TextRange text;
    std::string captured;  // the beginning of the text, for sections that were asked for

    // Why it is no good: the failure or "not finished"; "" when it is good.
    std::string_view Trouble() const {
        return failure.empty() && !complete ? std::string_view("not finished") : failure;
    }
};

// One sensor of the black box. Column c of record i is values[c][i]: three columns, one, or none
// when there is no record. Of the on-wrist sensor a record is a period: its start, and its seconds.
struct Sensor {
    unsigned number = 0;
    std::string name;
    std::string skipped;  // why there are no records: "Incomplete buffer"; "" if not skipped
    std::vector<uint64_t> times;              // nanoseconds since boot
    std::vector<std::vector<double>> values;  // as printed, infinities and NaN among them
    std::optional<double> total_worn;         // seconds; only of the on-wrist sensor
    TextRange text;                           // heading and records, or the line that skips it
};

// The block outside of the sections that holds what the sensors recorded.
struct BlackBox {
    std::vector<Sensor> sensors;  // as they stand in the report
    std::string failure;          // what a line of asterisks in it says; "" if none does
    TextRange text;               // from its heading on

    // What is wrong with the block, as one sentence: what it says itself, "no data" for a bare
    // heading, which sensors were skipped. "" when nothing is.
    std::string Trouble() const;
};

// Reads a board report while it arrives.
//
//   ------ TITLE (argv or path) ------
//   whatever, binary or of any length
//   *** what went wrong, directly before the footer, if anything did
//   ------ 0.012s was the duration of 'TITLE' ------
//
// A section may print lines that look like these: a log may hold an older report. So a section is
// open until the footer with its own title, and all before that is its content. A footer can also
// be lost, with a service that died or a reader that was slow. A section that still has none when
// the report ends is told as unfinished, and what was taken for its content is read by the same
// rules and told after it.
//
// Memory: the records of the black box, 8 bytes a time and 8 a value, and what was asked to be
// captured; else bounded whatever arrives. One thread.
class ReportParser {
  public:
    // What is told while the report is fed. Everything comes in the report's order and once.
    struct Listener {
        // A section has begun; its title may turn out longer. Only of those that are told as soon
        // as they end, for showing what is going on.
        std::function<void(std::string_view title)> on_begin;
        std::function<void(Section&&)> on_section;
        std::function<void(BlackBox&&)> on_black_box;
        // Whole lines outside of sections and black box, those that follow one another together.
        std::function<void(TextRange)> on_outside;
        // Whether the beginning of a section's text, 256 KiB at most, is to be captured.
        std::function<bool(std::string_view title)> wants_text;
    };

    // Functions that are left empty are not called.
    explicit ReportParser(Listener listener);

    // The next bytes, cut anywhere.
    void Feed(std::string_view bytes);
    // No more bytes will come. Once.
    void Finish();

    // The first byte that something still to be told may lie on.
    uint64_t NeededFrom() const;
    uint64_t size() const { return fed_; }
    // From the first line; nothing when it says neither.
    std::optional<bool> verbose() const { return verbose_; }

  private:
    uint64_t fed_ = 0;
    std::optional<bool> verbose_;
};

}  // namespace reader
