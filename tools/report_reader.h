#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Finds the sections of a board report while it arrives.
//
//   ------ TITLE (argv or path) ------
//   whatever, binary or of any length
//   *** what went wrong, directly before the footer, if anything did
//   ------ 0.012s was the duration of 'TITLE' ------
//
// A section may print lines that look like these: a log may hold an older report. So a section is
// open until the footer with its own title, and all before that is its content. A footer can also
// be lost, with a service that died or a reader that was slow. A section that still has none when
// the report ends is told as unfinished, and the sections that were taken for its content are told
// after it.
//
// Memory is bounded whatever arrives. One thread.
class ReportReader {
  public:
    struct Section {
        std::string title;
        double seconds = 0;
        std::string failure;  // without the asterisks; empty when nothing went wrong
        bool finished = true;
    };
    using OnBegin = std::function<void(std::string_view title)>;
    using OnEnd = std::function<void(const Section&)>;

    // The callbacks run within Feed() and Finish(). Every section that is told as begun is told as
    // ended; one that was first taken for content is told as both at once.
    ReportReader(OnBegin on_begin, OnEnd on_end);

    // The next bytes, cut anywhere.
    void Feed(std::string_view bytes);
    // No more bytes will come. Once.
    void Finish();

  private:
    // Longer lines are content; a header holds at most a script.
    static constexpr size_t kLongestLine = 8192;
    // How many sections within an unfinished one are remembered.
    static constexpr size_t kMostInner = 1024;

    struct Open {
        std::string header;  // "TITLE (argv or path)": where the title ends, the footer tells
        std::string_view ApparentTitle() const {
            return std::string_view(header).substr(0, header.find(" ("));
        }
    };
    struct Footer {
        std::string_view title;
        double seconds;
    };

    void TakeLine(std::string_view line);
    void TakeHeader(std::string_view header);
    void TakeFooter(const Footer& footer);
    static std::optional<std::string_view> ParseHeader(std::string_view line);
    static std::optional<Footer> ParseFooter(std::string_view line);
    static bool Closes(const Footer& footer, const std::optional<Open>& open);
    Section Ended(const Footer& footer);

    const OnBegin on_begin_;
    const OnEnd on_end_;
    std::string partial_;    // the beginning of a line that may matter
    bool skipping_ = false;  // within a line that doesn't
    std::string failure_;    // of the line before, if that was a failure line
    std::optional<Open> open_;
    std::optional<Open> inner_;    // within open_
    std::vector<Section> within_;  // ended within open_
};
