#include "rules.h"

#include <re2/re2.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <utility>

#include "utf8.h"
#include "watch.h"

namespace reader {
namespace {

// What a condition has found where it holds.
struct Outcome {
    Finding place;  // section, index, line, sensor, evidence, facts
    std::string subject;
    uint64_t count = 1;
    std::vector<std::string> groups;
};

// Asks one report what the checks want to know.
class Asker {
  public:
    Asker(const Report& report, const Watch& watch, const Verdict& found)
        : report_(report), watch_(watch), found_(found) {}

    std::optional<Outcome> Ask(const Condition& condition) const;
    std::string Fill(std::string_view text, const Outcome& outcome) const;

  private:
    std::optional<Outcome> AskFact(const Condition& condition) const;
    std::optional<Outcome> AskSection(const Condition& condition) const;
    std::optional<Outcome> AskSensor(const Condition& condition) const;
    std::optional<Outcome> AskAll(const Condition& condition) const;

    const Report& report_;
    const Watch& watch_;
    const Verdict& found_;  // by the checks that are code
};

double NumberOf(const Fact& fact) {
    return std::strtod(fact.value.c_str(), nullptr);
}

bool Is(const Fact& fact, const std::string& value) {
    if (!fact.row->number) return fact.value == value;
    char* end = nullptr;
    const double number = std::strtod(value.c_str(), &end);
    return end != value.c_str() && *end == '\0' && number == NumberOf(fact);
}

std::optional<Outcome> Asker::AskFact(const Condition& condition) const {
    const Fact* const fact = report_.FindFact(condition.fact->key);
    if (fact == nullptr) return {};
    Outcome outcome;
    outcome.place.facts = {condition.fact};
    if (condition.above && !(NumberOf(*fact) > *condition.above)) return {};
    if (condition.below && !(NumberOf(*fact) < *condition.below)) return {};
    if (condition.is && !Is(*fact, *condition.is)) return {};
    if (condition.is_not && Is(*fact, *condition.is_not)) return {};
    if (condition.differs_from != nullptr) {
        const Fact* const other = report_.FindFact(condition.differs_from->key);
        if (other == nullptr) return {};
        if (!(std::fabs(NumberOf(*fact) - NumberOf(*other)) > condition.by)) return {};
        outcome.place.facts.push_back(condition.differs_from);
    }
    if (condition.pattern != nullptr) {
        std::vector<re2::StringPiece> groups(
                static_cast<size_t>(condition.pattern->NumberOfCapturingGroups()) + 1);
        if (!condition.pattern->Match(fact->value, 0, fact->value.size(), re2::RE2::UNANCHORED,
                                      groups.data(), static_cast<int>(groups.size()))) {
            return {};
        }
        for (const auto& group : groups) outcome.groups.emplace_back(group.data(), group.size());
    }
    outcome.subject = condition.fact->label;
    if (fact->section) {
        outcome.place.section = condition.fact->section;
        outcome.place.index = fact->section;
        if (fact->line > 0) outcome.place.line = fact->line;
        outcome.place.evidence = fact->evidence;
    }
    return outcome;
}

std::optional<Outcome> Asker::AskSection(const Condition& condition) const {
    const Sighting sighting = watch_.Of(condition);
    Outcome outcome;
    outcome.subject = condition.sections.front();
    outcome.count = sighting.count;
    if (condition.kind == Condition::Kind::kAbsent) {
        // Where text was lost, nobody knows what stood there.
        return sighting.count == 0 && found_.complete ? std::optional(outcome) : std::nullopt;
    }
    if (sighting.count < condition.at_least) return {};
    outcome.subject = sighting.section;
    outcome.groups = sighting.groups;
    outcome.place.section = sighting.section;
    outcome.place.index = sighting.index;
    if (sighting.line > 0) outcome.place.line = sighting.line;
    outcome.place.evidence = sighting.evidence;
    return outcome;
}

std::optional<Outcome> Asker::AskSensor(const Condition& condition) const {
    Outcome outcome;
    outcome.subject = condition.sensor;
    if (!condition.state.empty()) {
        const auto told = std::ranges::find_if(found_.findings, [&](const Finding& finding) {
            return finding.subject == condition.sensor &&
                   finding.check == "sensor-" + condition.state;
        });
        if (told == found_.findings.end()) return {};
        outcome.place.sensor = told->sensor;
        return outcome;
    }
    constexpr size_t kFewRecords = 20;  // that tell no rate
    for (size_t box = 0; box < report_.black_boxes.size(); ++box) {
        const auto& sensors = report_.black_boxes[box].sensors;
        for (size_t i = 0; i < sensors.size(); ++i) {
            const SensorStatistics& its = sensors[i].statistics;
            // Gaps make it slower on the whole, and are told by themselves.
            if (sensors[i].name != condition.sensor || its.records < kFewRecords) continue;
            if (its.median_step <= 0) continue;
            const double rate = 1 / its.median_step;
            if ((condition.above && rate > *condition.above) ||
                (condition.below && rate < *condition.below)) {
                outcome.place.sensor = Finding::SensorPlace{box, i};
                return outcome;
            }
        }
    }
    return {};
}

std::optional<Outcome> Asker::AskAll(const Condition& condition) const {
    std::optional<Outcome> all;
    for (const Condition& part : condition.parts) {
        const auto outcome = Ask(part);
        if (!outcome) return {};
        if (!all) {
            all = outcome;
            continue;
        }
        std::ranges::copy(outcome->place.facts, std::back_inserter(all->place.facts));
        if (all->groups.empty()) all->groups = outcome->groups;
        if (!all->place.line && outcome->place.line) {
            auto facts = std::move(all->place.facts);
            all->place = outcome->place;
            all->place.facts = std::move(facts);
        }
    }
    return all;
}

std::optional<Outcome> Asker::Ask(const Condition& condition) const {
    using enum Condition::Kind;
    switch (condition.kind) {
        case kFact:
            return AskFact(condition);
        case kSensor:
            return AskSensor(condition);
        case kAll:
            return AskAll(condition);
        case kAny:
            for (const Condition& part : condition.parts) {
                if (const auto outcome = Ask(part)) return outcome;
            }
            return {};
        default:
            return AskSection(condition);
    }
}

std::string Asker::Fill(std::string_view text, const Outcome& outcome) const {
    std::string filled;
    while (!text.empty()) {
        const size_t brace = std::min(text.find('{'), text.size());
        filled += text.substr(0, brace);
        text.remove_prefix(brace);
        const size_t end = text.find('}');
        if (end == std::string_view::npos) break;
        const std::string_view name = text.substr(1, end - 1);
        const Fact* const fact = report_.FindFact(name);
        if (name == "count") {
            filled += std::to_string(outcome.count);
        } else if (name.size() == 1 && name[0] >= '0' && name[0] <= '9') {
            const auto group = static_cast<size_t>(name[0] - '0');
            if (group < outcome.groups.size()) filled += outcome.groups[group];
        } else {
            filled += fact == nullptr ? "?" : fact->value;
        }
        text.remove_prefix(end + 1);
    }
    return filled + std::string(text);
}

std::optional<Finding> FindingOf(const Check& check, const Asker& asker) {
    const auto outcome = asker.Ask(*check.condition);
    if (!outcome) return {};
    Finding finding = outcome->place;
    finding.check = check.id;
    finding.severity = check.severity;
    finding.subject = outcome->subject;
    finding.what = finding.says = asker.Fill(check.says, *outcome);
    finding.hint = asker.Fill(check.hint, *outcome);
    return finding;
}

// Whether what is unusual has been told of already, by a check that knows what it means.
bool IsTold(const Finding& unusual, const std::vector<Finding>& findings) {
    return std::ranges::any_of(findings, [&unusual](const Finding& finding) {
        const bool same_fact = std::ranges::any_of(unusual.facts, [&finding](const FactRow* row) {
            return std::ranges::find(finding.facts, row) != finding.facts.end();
        });
        const bool same_section = unusual.facts.empty() && unusual.index &&
                                  finding.index == unusual.index && finding.facts.empty() &&
                                  !finding.line;
        return same_fact || same_section || (unusual.sensor && finding.sensor == unusual.sensor);
    });
}

}  // namespace

Verdict Judge(const Report& report, const Watch& watch) {
    const Checks& checks = watch.rules().checks;
    Verdict verdict = Judge(report);
    std::vector<Finding> findings;
    const Asker asker(report, watch, verdict);
    const size_t count = checks.all().size();
    for (size_t i = 0; i < count; ++i) {
        // One's own come first.
        const Check& check = checks.all()[(checks.built_in() + i) % count];
        if (check.severity == Severity::kNone || !Applies(check, report.facts)) continue;
        if (auto finding = FindingOf(check, asker)) findings.push_back(std::move(*finding));
    }
    std::erase_if(verdict.findings,
                  [&checks](const Finding& finding) { return checks.IsReplaced(finding.check); });
    std::ranges::move(verdict.findings, std::back_inserter(findings));
    verdict.findings = std::move(findings);
    if (watch.rules().baseline && !checks.IsReplaced("unusual")) {
        for (Finding& finding :
             watch.rules().baseline->Unusual(report, watch.seen(), verdict.complete)) {
            if (!IsTold(finding, verdict.findings)) verdict.Add(std::move(finding));
        }
    }
    for (const Checks::CodeCheck& code : Checks::CodeChecks()) {
        const Checks::Weight* const weight = checks.WeightOf(code.id);
        if (weight == nullptr) continue;
        verdict.Weigh(code.id, weight->severity.value_or(code.severity));
        for (Finding& finding : verdict.findings) {
            if (finding.check == code.id && !weight->hint.empty()) finding.hint = weight->hint;
        }
    }
    verdict.Sort();
    return verdict;
}

}  // namespace reader
