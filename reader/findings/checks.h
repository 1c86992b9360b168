#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "facts.h"
#include "section.h"
#include "verdict.h"

namespace re2 {
class RE2;
}

namespace reader {

using Pattern = std::shared_ptr<const re2::RE2>;

// What has to be so for a check to hold of a report. doc/checks.md says what each kind means.
struct Condition {
    enum class Kind { kFact, kLines, kFailure, kTime, kAbsent, kSensor, kAll, kAny };

    Kind kind = Kind::kAll;

    const FactRow* fact = nullptr;
    std::optional<double> above, below;  // of a fact, or of a sensor's rate
    std::optional<std::string> is, is_not;
    const FactRow* differs_from = nullptr;
    double by = 0;

    std::vector<std::string> sections;  // titles; "*" is every section
    Pattern pattern;  // of a fact, a line or a failure, which is matched as a whole
    uint64_t at_least = 1;
    bool since_boot = false;
    double longer_than = 0;
    // Which of the things that are looked for in sections it is.
    size_t sighting = 0;

    std::string sensor;
    std::string state;  // "frozen"; "" where it is about the rate

    std::vector<Condition> parts;  // of all, of any
};

struct Check {
    std::string id;
    Severity severity = Severity::kWarning;
    std::optional<Condition> condition;  // nothing where another check is only weighed anew
    std::string says, hint;              // templates
    // What the report has to say for it to be asked; "" for anything.
    std::string build_type, device, since_build, fixed_since;
    std::string origin;  // "built in", or FILE:LINE
};

struct Expectation {
    std::string section;
    Pattern failure;
    std::string why;
};

// The checks in force: what is built in, and what has been loaded over it.
class Checks {
  public:
    // With what is built in.
    Checks();

    // Adds a file's. Returns what is wrong with it, a sentence each, as FILE:LINE: SENTENCE; all
    // else of it is in force. With `examples` each pattern is tried on its examples too.
    std::vector<std::string> Load(const std::string& file, bool examples);
    std::vector<std::string> LoadText(std::string_view text, const std::string& file,
                                      bool examples);

    // What is asked of a report: the built-in ones, the gravest first, or what has taken their
    // places, and then one's own.
    const std::vector<Check>& all() const { return checks_; }
    size_t built_in() const { return built_in_; }
    // The conditions that are about sections have numbers below this.
    size_t sightings() const { return sightings_; }
    // Why a healthy device has the section's failure too; "" when none does.
    std::string_view WhyExpected(const Section& section) const;

    // What becomes of a check that has no condition, as its code finds it.
    struct Weight {
        std::optional<Severity> severity;
        std::string hint;
    };
    const Weight* WeightOf(std::string_view id) const;
    // A check with conditions has taken its place.
    bool IsReplaced(std::string_view id) const;

    // Those that are no rows of a file but code, and how grave each is at most.
    struct CodeCheck {
        std::string_view id;
        Severity severity;
        std::string_view about;
    };
    static std::vector<CodeCheck> CodeChecks();

    // The file with the built-in ones, as it is installed.
    static std::string_view BuiltInText();

  private:
    friend class CheckReader;
    void Put(Check check);
    void Number(Condition& condition);

    std::vector<Check> checks_;
    std::map<std::string, size_t, std::less<>> places_;  // in checks_, by id
    std::map<std::string, Weight, std::less<>> weights_;
    std::vector<Expectation> expected_;
    size_t sightings_ = 0;
    size_t built_in_ = 0;
};

// Whether the check is asked of a report with these facts.
bool Applies(const Check& check, const std::vector<Fact>& facts);

}  // namespace reader
