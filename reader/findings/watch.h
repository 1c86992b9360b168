#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "report.h"
#include "rules.h"

namespace reader {

// What was seen of one of the things that checks look for in sections.
struct Sighting {
    uint64_t count = 0;
    std::string section;  // the first, and where in it
    size_t index = 0;
    uint64_t line = 0;  // 0 where it is no line
    std::string evidence;
    std::vector<std::string> groups;  // of the pattern, the first being all that matched
    double seconds = 0;               // of the slowest
};

// Looks at a report's sections, each as it ends, for what the rules want to know of their text,
// their failures and their times. Memory is bounded by the rules.
class Watch {
  public:
    // Both outlive it. The report's source reads the texts.
    Watch(const Rules& rules, const Report& report);
    ~Watch();
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    // The next section; its index is set. Says of its failure why it is expected, if it is.
    void Take(Section& section);

    const Rules& rules() const { return rules_; }
    // What was seen for a condition about sections. Once the report has been read.
    Sighting Of(const Condition& condition) const;
    // How the sections were that the baseline knows, by title.
    const SectionsSeen& seen() const { return seen_; }

  private:
    // A line that may be older than the boot.
    struct Dated {
        int64_t time;
        Sighting sighting;
    };
    class Lines;  // the patterns of one title, as one set

    void Sort(const Condition& condition);
    void LookAtLines(const Section& section);
    void See(const Condition& condition, const Section& section);
    // Between the boot and the report, as far as the report tells of them.
    bool IsOfThisBoot(int64_t time) const;
    void SeeLine(const Condition& condition, const Section& section, uint64_t number,
                 std::string_view line, int64_t time);

    const Rules& rules_;
    const Report& report_;
    std::vector<Sighting> sightings_;
    std::map<size_t, std::vector<Dated>> undated_;  // by sighting; the newest
    // By title: what is wanted of the section, and of its lines.
    std::map<std::string, std::vector<const Condition*>, std::less<>> conditions_;
    std::map<std::string, std::unique_ptr<Lines>, std::less<>> lines_;
    SectionsSeen seen_;
};

}  // namespace reader
