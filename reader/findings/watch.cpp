#include "watch.h"

#include <re2/re2.h>
#include <re2/set.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "clock_time.h"
#include "units.h"
#include "utf8.h"

namespace reader {
namespace {

constexpr uint64_t kPiece = uint64_t{256} << 10;
// Lines that are looked at at once; one of them that matches costs that all are, by themselves.
constexpr size_t kBlock = size_t{16} << 10;
// Of a longer line, only so much is looked at.
constexpr size_t kLongestLine = size_t{64} << 10;
constexpr size_t kMostShown = 1000;
// Of the lines that match and may be older than the boot, the newest are kept.
constexpr size_t kMostDated = 64;

std::string Shown(std::string_view text) {
    if (text.size() <= kMostShown) return std::string(text);
    text = text.substr(0, kMostShown);
    return std::string(text.substr(0, WholeCharacters(text))) + "...";
}

// A log's "2026-11-24 07:31:15", which its line begins with, in or without brackets; 0 when it
// doesn't.
int64_t TimeOf(std::string_view line) {
    constexpr size_t kTime = 19;
    line.remove_prefix(std::min(line.find_first_not_of("[ "), line.size()));
    if (line.size() < kTime || line[0] < '0' || line[0] > '9' || line[4] != '-') return 0;
    return ParseTime(line.substr(0, kTime)).value_or(0);
}

// Whether a text of several lines matches wherever one of them does: not where the text's own ends,
// or other flags, are asked for.
bool MaySpanLines(std::string_view pattern) {
    for (size_t at = 0; (at = pattern.find_first_of("\\(", at)) != std::string_view::npos;
         at += 2) {
        const std::string_view two = pattern.substr(at, 2);
        if (two == "\\A" || two == "\\z" || two == "\\Q") return false;
        if (two != "(?") {
            if (two[0] == '(') --at;  // what follows it may begin the next
            continue;
        }
        const std::string_view flags = pattern.substr(at + 2);
        if (!flags.starts_with(':') && !flags.starts_with("P<") && !flags.starts_with("i)") &&
            !flags.starts_with("i:")) {
            return false;
        }
    }
    return true;
}

}  // namespace

class Watch::Lines {
  public:
    void Add(const Condition& condition) { conditions_.push_back(&condition); }

    // Calls see(condition, number, line, time) for each line of the text, which is fed in pieces,
    // that matches.
    template <typename Tell>
    void Feed(std::string_view piece, const Tell& see);
    // Before a section's first piece.
    void Begin() {
        if (!compiled_) Compile();
        number_ = 0;
        time_ = 0;
        rest_.clear();
        skipping_ = false;
    }
    template <typename Tell>
    void End(const Tell& see) {
        if (!rest_.empty()) TakeLine(rest_, see);
        rest_.clear();
    }

  private:
    void Compile();
    template <typename Tell>
    void TakeLines(std::string_view lines, const Tell& see);
    template <typename Tell>
    void TakeLine(std::string_view line, const Tell& see);
    // Whether there may be a match. `which` are told only of a line by itself.
    bool Match(std::string_view text, std::vector<int>* which) const;

    std::vector<const Condition*> conditions_;
    std::unique_ptr<re2::RE2::Set> set_;
    bool compiled_ = false;
    bool by_line_ = false;  // they can't be looked for in several lines at once
    bool dated_ = false;    // some want to know of when a line is
    std::vector<int> which_;
    std::string rest_;  // the beginning of a line
    bool skipping_ = false;
    uint64_t number_ = 0;
    int64_t time_ = 0;  // of the last line that tells one
};

void Watch::Lines::Compile() {
    compiled_ = true;
    re2::RE2::Options options(re2::RE2::Quiet);
    options.set_never_nl(true);
    constexpr int64_t kBudget = int64_t{16} << 20;
    constexpr int64_t kEach = int64_t{64} << 10;
    options.set_max_mem(kBudget + kEach * static_cast<int64_t>(conditions_.size()));
    set_ = std::make_unique<re2::RE2::Set>(options, re2::RE2::UNANCHORED);
    for (const Condition* const condition : conditions_) {
        const std::string& pattern = condition->pattern->pattern();
        by_line_ = by_line_ || !MaySpanLines(pattern);
        set_->Add("(?m:" + pattern + ")", nullptr);
        dated_ = dated_ || condition->since_boot;
    }
    by_line_ = by_line_ || dated_;
    if (!set_->Compile()) set_.reset();
}

bool Watch::Lines::Match(std::string_view text, std::vector<int>* which) const {
    re2::RE2::Set::ErrorInfo error{re2::RE2::Set::kNoError};
    if (set_ != nullptr) {
        const bool matches = set_->Match(re2::StringPiece(text.data(), text.size()), which, &error);
        if (matches || error.kind == re2::RE2::Set::kNoError) return matches;
    }
    // Too many states at once: one after the other then.
    if (which == nullptr) return true;
    which->clear();
    for (size_t i = 0; i < conditions_.size(); ++i) {
        if (re2::RE2::PartialMatch(re2::StringPiece(text.data(), text.size()),
                                   *conditions_[i]->pattern)) {
            which->push_back(static_cast<int>(i));
        }
    }
    return !which->empty();
}

template <typename Tell>
void Watch::Lines::TakeLine(std::string_view line, const Tell& see) {
    ++number_;
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (dated_) {
        if (const int64_t time = TimeOf(line); time != 0) time_ = time;
    }
    which_.clear();
    if (!Match(line, &which_)) return;
    for (const int i : which_) see(*conditions_[static_cast<size_t>(i)], number_, line, time_);
}

template <typename Tell>
void Watch::Lines::TakeLines(std::string_view lines, const Tell& see) {
    if (!by_line_ && !Match(lines, nullptr)) {
        number_ += static_cast<uint64_t>(std::ranges::count(lines, '\n'));
        return;
    }
    while (!lines.empty()) {
        const size_t end = lines.find('\n');
        TakeLine(lines.substr(0, end), see);
        lines.remove_prefix(end + 1);
    }
}

template <typename Tell>
void Watch::Lines::Feed(std::string_view piece, const Tell& see) {
    if (skipping_ || !rest_.empty()) {  // the line that the piece before has begun
        const size_t end = std::min(piece.find('\n'), piece.size());
        if (!skipping_) rest_ += piece.substr(0, std::min(end, kLongestLine - rest_.size()));
        if (end == piece.size()) {
            skipping_ = skipping_ || rest_.size() == kLongestLine;
            return;
        }
        TakeLine(rest_, see);
        rest_.clear();
        skipping_ = false;
        piece.remove_prefix(end + 1);
    }
    while (!piece.empty()) {
        size_t end = piece.rfind('\n', kBlock);
        if (end == std::string_view::npos) end = piece.find('\n');
        if (end == std::string_view::npos) break;
        if (end <= kLongestLine) {
            TakeLines(piece.substr(0, end + 1), see);
        } else {
            TakeLine(piece.substr(0, kLongestLine), see);
        }
        piece.remove_prefix(end + 1);
    }
    rest_ = piece.substr(0, kLongestLine);
    skipping_ = rest_.size() == kLongestLine;
}

Watch::Watch(const Rules& rules, const Report& report)
    : rules_(rules), report_(report), sightings_(rules.checks.sightings()) {
    for (const Check& check : rules.checks.all()) {
        if (check.severity != Severity::kNone) Sort(*check.condition);
    }
}

Watch::~Watch() = default;

void Watch::Sort(const Condition& condition) {
    for (const std::string& title : condition.sections) {
        if (condition.kind != Condition::Kind::kLines) {
            conditions_[title].push_back(&condition);
            continue;
        }
        std::unique_ptr<Lines>& lines = lines_[title];
        if (lines == nullptr) lines = std::make_unique<Lines>();
        lines->Add(condition);
    }
    for (const Condition& part : condition.parts) Sort(part);
}

void Watch::Take(Section& section) {
    const auto& baseline = rules_.baseline;
    if (!section.failure.empty()) {
        section.expected = rules_.checks.WhyExpected(section);
        if (section.expected.empty() && baseline) section.expected = baseline->WhyExpected(section);
    }
    if (baseline && baseline->Knows(section.title)) Add(seen_, section);
    for (const std::string_view title : {std::string_view(section.title), std::string_view("*")}) {
        const auto wanted = conditions_.find(title);
        if (wanted == conditions_.end()) continue;
        for (const Condition* const condition : wanted->second) See(*condition, section);
    }
    if (section.text.size() > 0) LookAtLines(section);
}

void Watch::See(const Condition& condition, const Section& section) {
    using enum Condition::Kind;
    Sighting& sighting = sightings_[condition.sighting];
    const bool matches = condition.kind == kAbsent ||
                         (condition.kind == kTime && section.seconds > condition.longer_than) ||
                         (condition.kind == kFailure && !section.failure.empty() &&
                          re2::RE2::FullMatch(section.failure, *condition.pattern));
    if (!matches) return;
    const bool shown = sighting.count++ == 0 ||
                       (condition.kind == kTime && section.seconds > sighting.seconds);
    if (!shown) return;
    sighting.section = section.title;
    sighting.index = section.index;
    sighting.seconds = section.seconds;
    sighting.groups = {Fixed(section.seconds, 2)};
    if (condition.kind != kFailure) return;
    sighting.evidence = "*** " + section.failure;
    sighting.groups = {section.failure};
}

void Watch::LookAtLines(const Section& section) {
    std::array<Lines*, 2> wanted{};
    const auto own = lines_.find(section.title);
    const auto any = lines_.find("*");
    if (own != lines_.end()) wanted[0] = own->second.get();
    if (any != lines_.end()) wanted[1] = any->second.get();
    if (wanted[0] == nullptr && wanted[1] == nullptr) return;
    const auto see = [&](const Condition& condition, uint64_t number, std::string_view line,
                         int64_t time) { SeeLine(condition, section, number, line, time); };
    for (Lines* const lines : wanted) {
        if (lines != nullptr) lines->Begin();
    }
    std::string piece;
    for (TextRange text = section.text; text.size() > 0;) {
        const TextRange next{text.begin, std::min(text.end, text.begin + kPiece)};
        text.begin = next.end;
        piece.clear();
        if (!report_.source->ReadAt(next, piece)) break;  // whoever shows the text says so
        for (Lines* const lines : wanted) {
            if (lines != nullptr) lines->Feed(piece, see);
        }
    }
    for (Lines* const lines : wanted) {
        if (lines != nullptr) lines->End(see);
    }
}

bool Watch::IsOfThisBoot(int64_t time) const {
    const auto boot = report_.BootSeconds();
    const auto uptime = report_.UptimeSeconds();
    return !boot || (time >= *boot && (!uptime || time <= *boot + *uptime));
}

void Watch::SeeLine(const Condition& condition, const Section& section, uint64_t number,
                    std::string_view line, int64_t time) {
    Sighting* sighting = &sightings_[condition.sighting];
    if (condition.since_boot && time != 0) {
        if (report_.BootSeconds()) {
            if (!IsOfThisBoot(time)) return;
        } else {
            std::vector<Dated>& undated = undated_[condition.sighting];
            if (undated.size() == kMostDated) undated.erase(undated.begin());
            sighting = &undated.emplace_back(Dated{time, {}}).sighting;
        }
    }
    if (sighting->count++ > 0) return;
    sighting->section = section.title;
    sighting->index = section.index;
    sighting->line = number;
    sighting->evidence = Shown(line);
    const re2::RE2& pattern = *condition.pattern;
    std::vector<re2::StringPiece> groups(static_cast<size_t>(pattern.NumberOfCapturingGroups()) +
                                         1);
    pattern.Match(re2::StringPiece(line.data(), line.size()), 0, line.size(), re2::RE2::UNANCHORED,
                  groups.data(), static_cast<int>(groups.size()));
    sighting->groups.clear();
    for (const re2::StringPiece& group : groups) {
        sighting->groups.push_back(Shown({group.data(), group.size()}));
    }
}

Sighting Watch::Of(const Condition& condition) const {
    Sighting sighting = sightings_[condition.sighting];
    const auto undated = undated_.find(condition.sighting);
    if (undated == undated_.end()) return sighting;
    for (const Dated& dated : undated->second) {
        if (!IsOfThisBoot(dated.time)) continue;
        const uint64_t count = sighting.count + 1;
        if (count == 1) sighting = dated.sighting;
        sighting.count = count;
    }
    return sighting;
}

}  // namespace reader
