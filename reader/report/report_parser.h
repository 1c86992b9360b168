#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "black_box.h"
#include "section.h"
#include "service_sections.h"
#include "text_range.h"

namespace reader {

// Reads a board report while it arrives.
//
//   ------ TITLE (argv or path) ------
//   whatever, binary or of any length
//   *** what went wrong, directly before the footer, if anything did
//   ------ 0.012s was the duration of 'TITLE' ------
//
// A section may print lines that look like these: a log may hold an older report. A section is open
// until a footer with its title, which ends the last that was begun of that title, and all before
// is its content. A footer can also be lost, with a service that died or a reader that was slow. A
// section that still has none when the report ends is told as unfinished, and what was taken for
// its content is read by the same rules and told after it.
//
// Where both could be, nothing is hidden: content that holds a section which the service writes and
// which has not come before, outside of a report that begins with its first line, is this report's
// own, and the section around it is unfinished.
//
// Memory: the records of the black box, 8 bytes a time and 8 a value; all else is bounded, whatever
// arrives. One thread.
class ReportParser {
  public:
    struct Loss {
        enum class Kind {
            kHeader,  // a footer, of the section `title`, without its header
            kFooter,  // the section `title` goes on until after others: its footer is another's
            kAround,  // of lines outside that the service doesn't write there; `title` is the first
            kBeginning,  // another report begins, and the one before has not come to its end
            kFirstLine,  // after a report's end others of its sections come, the first is `title`
        };
        Kind kind;
        std::string title;
        TextRange where;
    };

    // What is told while the report is fed. Everything comes in the report's order and once.
    struct Listener {
        // A section has begun; its title may turn out longer. Not of those that were first taken
        // for content.
        std::function<void(std::string_view title)> on_begin;
        std::function<void(Section&&)> on_section;
        std::function<void(BlackBox&&)> on_black_box;
        // Whole lines outside of sections and black box, those that follow one another together.
        std::function<void(TextRange)> on_outside;
        // What stands there shows that something was lost before it.
        std::function<void(const Loss&)> on_loss;
        // Whether the beginning of a section's text, 256 KiB at most, is to be captured.
        std::function<bool(std::string_view title)> wants_text;
    };

    // Functions that are left empty are not called.
    explicit ReportParser(Listener listener);

    // The next bytes, cut anywhere.
    void Feed(std::string_view bytes);
    // No more bytes will come. Once.
    void Finish();

    // No section that is still to be told has text before this.
    uint64_t NeededFrom() const {
        return items_.empty() || items_.front().black_box ? fed_ : items_.front().begin;
    }
    uint64_t size() const { return fed_; }
    // From the first of the service's lines; nothing where that is missing or says neither.
    std::optional<bool> verbose() const { return verbose_; }
    bool has_first_line() const { return has_first_line_; }

    // Whether the last section that was told is complete and the one that the service writes last.
    bool at_end() const { return at_end_; }
    // Whether the last line lacks its end. After Finish().
    bool cut() const { return cut_; }

  private:
    // What has begun and may turn out to be told: a section, or the black box.
    struct Item {
        uint64_t begin;      // of the header's line
        uint64_t after = 0;  // the end of the footer's line; 0 while it is open
        std::string header;  // "TITLE (argv or path)": where the title ends, the footer tells
        uint64_t older = 0;  // where before it in content a report's first line stands
        std::optional<size_t> service;  // which of the service's sections, once it is complete
        Section section;
        std::optional<BlackBox> black_box;  // then it is that
    };
    struct Line {
        std::string_view text;
        uint64_t begin;
        uint64_t end;        // behind its newline
        bool glued = false;  // it begins within a line
    };
    struct Footer {
        std::string_view title;
        double seconds;
    };

    // Each line is looked at: else only those that may be a header and the like.
    bool EveryLineMatters() const { return in_black_box_ || open_.empty(); }
    bool MayMatter(char first) const;
    size_t FindLine(std::string_view bytes);
    void Capture(std::string_view bytes);

    void TakeLine(const Line& line);
    void TakeRule(const Line& line);
    void TakeHeader(const Line& line, std::string_view header);
    void TakeFooter(const Line& line, const Footer& footer);
    void CloseSection(Item& item, const Line& line, const Footer& footer) const;
    bool HoldsOwnSections(size_t index) const;
    void TakeGluedHeader(const Line& line, size_t at);
    void TakeFirstLine(const Line& line, std::string_view setting);
    void TakeStars(const Line& line);
    void TakeBlackBoxLine(const Line& line);
    void BeginBlackBox(const Line& line);
    void EndBlackBox(uint64_t at);
    static std::optional<Footer> ParseFooter(std::string_view line);
    Item& AddItem(uint64_t begin, std::string_view header);
    void Drop(size_t from);
    void GiveUp(size_t open, uint64_t at);
    void TellResolved(uint64_t at);
    void TakeLongLine(std::string_view beginning, uint64_t begin);
    void TakeOutside(const Line& line);
    void SetStray(const Line& line);
    void TellStray();
    void TellLoss(Loss::Kind kind, std::string_view title, TextRange where);
    void Tell(Item&& item, uint64_t end);
    void TellOutside(uint64_t until);

    const Listener listener_;
    uint64_t fed_ = 0;
    std::optional<bool> verbose_;
    bool has_first_line_ = false;
    bool at_end_ = false;
    std::optional<Loss> stray_;  // lines that may belong to a footer that is to come
    bool cut_ = false;

    bool line_start_ = true;  // else within a line that doesn't matter
    bool glued_ = false;      // the next that is looked at begins within a line
    std::string partial_;     // the beginning of a line that may
    std::string failure_;     // the last failure line, and where it stands
    TextRange failure_line_;

    // The first is told as soon as it ends; what follows it, as in the report, has begun within it.
    std::vector<Item> items_;
    std::vector<size_t> open_;  // the sections that are open, outermost first
    uint64_t older_ = 0;        // where in content a report's first line stood last
    uint64_t own_heading_ = 0;  // where in content one stands that is due outside
    // Outside: the number of the last heading of statistics, and what the line before is.
    size_t headings_ = 0;
    bool after_heading_ = false;
    bool after_separator_ = false;
    // How often each of the service's sections is among the items, complete, or has been told.
    std::array<size_t, kServiceSections> seen_{};
    bool in_black_box_ = false;        // the last item is the black box, and open
    size_t pending_bytes_ = 0;         // of the items' headers and captured texts
    size_t pending_records_ = 0;       // of black boxes that have begun within a section
    std::optional<size_t> capturing_;  // the item that the text goes to
    uint64_t told_ = 0;                // what is before this has been told
};

}  // namespace reader
