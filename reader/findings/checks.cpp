#include "checks.h"

#include <re2/re2.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <sstream>
#include <utility>

#include <toml++/toml.h>

#include "checks_built.h"
#include "sensor_kinds.h"
#include "service_sections.h"
#include "utf8.h"

namespace reader {
namespace {

constexpr char kBuiltIn[] = "built in";

constexpr Checks::CodeCheck kCodeChecks[] = {
        {"section-failed", Severity::kError, "A section failed, and no [[expected]] row says so"},
        {"section-timed-out", Severity::kError, "A section was stopped at its time-out"},
        {"report-cut", Severity::kError, "The report has no end"},
        {"text-lost", Severity::kError, "Something within the report is missing"},
        {"black-box-lost", Severity::kError, "The sensor black box is not there or has no data"},
        {"sensor-missing", Severity::kError, "A sensor was skipped or is missing"},
        {"sensor-empty", Severity::kError, "A sensor recorded nothing"},
        {"sensor-frozen", Severity::kWarning, "A sensor, or one axis of it, stands still"},
        {"sensor-silent", Severity::kWarning, "A sensor stopped before the others"},
        {"sensor-gaps", Severity::kWarning, "A sensor's records have gaps, or its clock jumped"},
        {"records-from-the-future", Severity::kWarning, "Records are newer than the report"},
        {"time-unaccounted", Severity::kWarning, "Time passed that no section accounts for"},
        {"unusual", Severity::kWarning, "Something is unlike the baseline's reports"},
};

// What other builds write besides the service's own sections.
constexpr std::string_view kOtherTitles[] = {"*", "Kernel log"};

constexpr std::string_view kStates[] = {"missing", "empty", "frozen", "silent", "gaps"};

bool IsId(std::string_view text) {
    return !text.empty() && text.size() <= 100 && std::ranges::all_of(text, [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '-';
    });
}

std::string Quoted(std::string_view text) {
    constexpr size_t kMost = 80;
    return "\"" + Printable(text.substr(0, kMost)) + (text.size() > kMost ? "..." : "") + "\"";
}

bool IsCode(std::string_view id) {
    return std::ranges::find(kCodeChecks, id, &Checks::CodeCheck::id) != std::end(kCodeChecks);
}

int LineOf(const toml::node& node) {
    return static_cast<int>(node.source().begin.line);
}

// Calls take(line, name) for each {NAME} of a template.
template <typename Take>
void ForEachName(std::string_view text, Take take) {
    for (size_t at = 0; (at = text.find('{', at)) != std::string_view::npos; ++at) {
        const size_t end = text.find('}', at);
        if (end == std::string_view::npos) return;
        take(text.substr(at + 1, end - at - 1));
    }
}

}  // namespace

// Reads one file's tables, and says of each thing that is wrong in it where that stands.
class CheckReader {
  public:
    CheckReader(Checks& checks, const std::string& file, bool examples)
        : checks_(checks), file_(file), examples_(examples) {}

    std::vector<std::string> Read(std::string_view text);

  private:
    using Keys = std::set<std::string, std::less<>>;

    void ReadDocument(const toml::table& document);
    void ReadCheck(const toml::table& table);
    void ReadExpectation(const toml::table& table);
    void ReadCondition(const toml::table& table, Condition& condition, Keys& used);
    void ReadParts(const toml::table& table, std::string_view key, Condition& condition,
                   Keys& used);
    void ReadFact(const toml::table& table, Condition& condition, Keys& used);
    void ReadSection(const toml::table& table, Condition& condition, Keys& used);
    void ReadSensor(const toml::table& table, Condition& condition, Keys& used);
    void TryExamples(const toml::table& table, const Pattern& pattern, Keys& used);
    void CheckTemplate(const toml::table& table, std::string_view key, const Check& check);

    std::optional<std::string> Text(const toml::table& table, std::string_view key, Keys& used);
    std::optional<double> Number(const toml::table& table, std::string_view key, Keys& used);
    std::optional<std::string> Value(const toml::table& table, std::string_view key, Keys& used);
    std::vector<std::string> Texts(const toml::table& table, std::string_view key, Keys& used);
    Pattern ReadPattern(const toml::table& table, std::string_view key, Keys& used);
    const FactRow* ReadFactName(const toml::table& table, std::string_view key, Keys& used);
    void Unused(const toml::table& table, const Keys& used);

    void Complain(int line, const std::string& sentence) {
        complaints_.push_back(file_ + ":" + std::to_string(line_ + line) + ": " + sentence);
    }

    Checks& checks_;
    const std::string& file_;
    const bool examples_;
    int line_ = 0;  // lines before the part that is being read
    Keys ids_;
    std::vector<std::string> complaints_;
};

std::vector<std::string> CheckReader::Read(std::string_view text) {
    try {
        ReadDocument(toml::parse(text, file_));
        return std::move(complaints_);
    } catch (const toml::parse_error&) {  // which part of it is at fault is seen below
    }
    // Each table by itself, so that one costs no other.
    size_t begin = 0;
    while (begin < text.size()) {
        size_t end = text.find("\n[[", begin);
        end = end == std::string_view::npos ? text.size() : end + 1;
        const std::string_view part = text.substr(begin, end - begin);
        try {
            ReadDocument(toml::parse(part, file_));
        } catch (const toml::parse_error& error) {
            Complain(static_cast<int>(error.source().begin.line), std::string(error.description()));
        }
        line_ += static_cast<int>(std::ranges::count(part, '\n'));
        begin = end;
    }
    return std::move(complaints_);
}

void CheckReader::ReadDocument(const toml::table& document) {
    for (const auto& [key, node] : document) {
        const bool check = key == "check";
        const toml::array* const tables = node.as_array();
        if ((!check && key != "expected") || tables == nullptr) {
            Complain(LineOf(node), Quoted(key.str()) + " is unknown; a file has [[check]] and " +
                                           "[[expected]] tables");
            continue;
        }
        for (const toml::node& entry : *tables) {
            const toml::table* const table = entry.as_table();
            if (table == nullptr) {
                Complain(LineOf(entry), "this is no table");
            } else if (check) {
                ReadCheck(*table);
            } else {
                ReadExpectation(*table);
            }
        }
    }
}

std::optional<std::string> CheckReader::Text(const toml::table& table, std::string_view key,
                                             Keys& used) {
    const toml::node* const node = table.get(key);
    used.emplace(key);
    if (node == nullptr) return {};
    if (const auto text = node->value_exact<std::string>()) return text;
    Complain(LineOf(*node), std::string(key) + " is to be a text");
    return {};
}

std::optional<double> CheckReader::Number(const toml::table& table, std::string_view key,
                                          Keys& used) {
    const toml::node* const node = table.get(key);
    used.emplace(key);
    if (node == nullptr) return {};
    if (node->is_number()) {
        const auto number = node->value<double>();
        if (number && std::isfinite(*number)) return number;
    }
    Complain(LineOf(*node), std::string(key) + " is to be a number");
    return {};
}

// A text, or a number as a text.
std::optional<std::string> CheckReader::Value(const toml::table& table, std::string_view key,
                                              Keys& used) {
    const toml::node* const node = table.get(key);
    if (node == nullptr || node->is_string()) return Text(table, key, used);
    used.emplace(key);
    if (const auto integer = node->value_exact<int64_t>()) return std::to_string(*integer);
    const auto number = Number(table, key, used);
    if (!number) return {};
    std::array<char, 64> digits;
    std::snprintf(digits.data(), digits.size(), "%.17g", *number);
    return digits.data();
}

std::vector<std::string> CheckReader::Texts(const toml::table& table, std::string_view key,
                                            Keys& used) {
    const toml::node* const node = table.get(key);
    used.emplace(key);
    std::vector<std::string> texts;
    if (node == nullptr) return texts;
    if (const auto text = node->value_exact<std::string>()) return {*text};
    const toml::array* const array = node->as_array();
    bool good = array != nullptr && !array->empty();
    if (good) {
        for (const toml::node& entry : *array) {
            const auto text = entry.value_exact<std::string>();
            good = good && text.has_value();
            if (text) texts.push_back(*text);
        }
    }
    if (!good) Complain(LineOf(*node), std::string(key) + " is to be a text or a list of texts");
    return texts;
}

Pattern CheckReader::ReadPattern(const toml::table& table, std::string_view key, Keys& used) {
    const auto text = Text(table, key, used);
    if (!text) return nullptr;
    re2::RE2::Options options(re2::RE2::Quiet);
    options.set_never_nl(true);
    auto pattern = std::make_shared<re2::RE2>(*text, options);
    if (pattern->ok()) return pattern;
    Complain(LineOf(*table.get(key)), Quoted(*text) + " is no RE2 pattern: " + pattern->error());
    return nullptr;
}

const FactRow* CheckReader::ReadFactName(const toml::table& table, std::string_view key,
                                         Keys& used) {
    const auto name = Text(table, key, used);
    if (!name) return nullptr;
    const FactRow* const row = FindFactRow(*name);
    if (row == nullptr) {
        Complain(LineOf(*table.get(key)),
                 "there is no fact " + Quoted(*name) + "; boardreport json shows a report's");
    }
    return row;
}

void CheckReader::Unused(const toml::table& table, const Keys& used) {
    for (const auto& [key, node] : table) {
        if (used.contains(key.str())) continue;
        Complain(LineOf(node), "the key " + Quoted(key.str()) + " is unknown here");
    }
}

void CheckReader::TryExamples(const toml::table& table, const Pattern& pattern, Keys& used) {
    for (const auto& [key, wanted] : {std::pair{"example", true}, {"counterexample", false}}) {
        const std::vector<std::string> lines = Texts(table, key, used);
        if (!examples_ || pattern == nullptr) continue;
        const toml::array* const array = table.get_as<toml::array>(key);
        for (size_t i = 0; i < lines.size(); ++i) {
            if (re2::RE2::PartialMatch(lines[i], *pattern) == wanted) continue;
            const toml::node* const at = array == nullptr ? table.get(key) : array->get(i);
            Complain(LineOf(*at), std::string(key) + " " + Quoted(lines[i]) +
                                          (wanted ? " doesn't match " : " matches ") +
                                          Quoted(pattern->pattern()));
        }
    }
}

void CheckReader::ReadFact(const toml::table& table, Condition& condition, Keys& used) {
    condition.kind = Condition::Kind::kFact;
    condition.fact = ReadFactName(table, "fact", used);
    condition.above = Number(table, "above", used);
    condition.below = Number(table, "below", used);
    condition.is = Value(table, "is", used);
    condition.is_not = Value(table, "is_not", used);
    condition.differs_from = ReadFactName(table, "differs_from", used);
    condition.by = Number(table, "by", used).value_or(0);
    condition.pattern = ReadPattern(table, "matches", used);
    TryExamples(table, condition.pattern, used);
    const bool number = condition.above || condition.below || condition.differs_from != nullptr;
    if (!number && !condition.is && !condition.is_not && condition.pattern == nullptr &&
        table.get("matches") == nullptr) {
        Complain(LineOf(table),
                 "of the fact is to be said: above, below, is, is_not, matches or "
                 "differs_from");
    }
    const auto measures = [](const FactRow* row) { return row == nullptr || row->number; };
    if (number && !(measures(condition.fact) && measures(condition.differs_from))) {
        Complain(LineOf(*table.get("fact")), "only a fact that is a number is above, below or " +
                                                     std::string("different by something"));
    }
}

void CheckReader::ReadSection(const toml::table& table, Condition& condition, Keys& used) {
    condition.sections = Texts(table, "section", used);
    for (const std::string& title : condition.sections) {
        if (ServiceSection(title) ||
            std::ranges::find(kOtherTitles, title) != std::end(kOtherTitles)) {
            continue;
        }
        Complain(LineOf(*table.get("section")), "no section is called " + Quoted(title));
    }
    const bool lines = table.contains("matches");
    const bool failure = table.contains("failure");
    const auto longer = Number(table, "longer_than", used);
    used.emplace("absent");
    const bool absent = table.get("absent") != nullptr;
    if (absent && table["absent"].value_exact<bool>() != true) {
        Complain(LineOf(*table.get("absent")), "absent can only be true");
    }
    if (lines + failure + longer.has_value() + absent != 1) {
        Complain(LineOf(table),
                 "of the section one thing is to be said: matches, failure, "
                 "longer_than or absent");
    }
    if (lines) {
        condition.kind = Condition::Kind::kLines;
        condition.pattern = ReadPattern(table, "matches", used);
        const double least = Number(table, "at_least", used).value_or(1);
        condition.at_least = least >= 1 && least < 1e15 ? static_cast<uint64_t>(least) : 1;
        if (least < 1) Complain(LineOf(*table.get("at_least")), "at_least is to be 1 or more");
        used.emplace("since_boot");
        condition.since_boot = table["since_boot"].value_or(false);
        TryExamples(table, condition.pattern, used);
    } else if (failure) {
        condition.kind = Condition::Kind::kFailure;
        condition.pattern = ReadPattern(table, "failure", used);
    } else {
        condition.kind = absent ? Condition::Kind::kAbsent : Condition::Kind::kTime;
        condition.longer_than = longer.value_or(0);
    }
}

void CheckReader::ReadSensor(const toml::table& table, Condition& condition, Keys& used) {
    condition.kind = Condition::Kind::kSensor;
    condition.sensor = Text(table, "sensor", used).value_or("");
    if (std::ranges::none_of(KnownSensors(), [&](const SensorKind& kind) {
            return kind.name == condition.sensor;
        })) {
        Complain(LineOf(*table.get("sensor")), "no sensor is called " + Quoted(condition.sensor));
    }
    condition.state = Text(table, "state", used).value_or("");
    condition.above = Number(table, "rate_above", used);
    condition.below = Number(table, "rate_below", used);
    if (condition.state.empty() == (!condition.above && !condition.below)) {
        Complain(LineOf(table), "of the sensor is to be said: state, or rate_above and rate_below");
    } else if (!condition.state.empty() &&
               std::ranges::find(kStates, condition.state) == std::end(kStates)) {
        Complain(LineOf(*table.get("state")),
                 "a sensor's state is missing, empty, frozen, silent "
                 "or gaps");
    }
}

void CheckReader::ReadParts(const toml::table& table, std::string_view key, Condition& condition,
                            Keys& used) {
    condition.kind = key == "all" ? Condition::Kind::kAll : Condition::Kind::kAny;
    used.emplace(key);
    const toml::array* const parts = table.get_as<toml::array>(key);
    if (parts == nullptr || parts->empty()) {
        return Complain(LineOf(*table.get(key)), std::string(key) + " is to be a list of tables");
    }
    for (const toml::node& node : *parts) {
        const toml::table* const part = node.as_table();
        if (part == nullptr) {
            Complain(LineOf(node), "this is no table");
            continue;
        }
        Keys keys;
        ReadCondition(*part, condition.parts.emplace_back(), keys);
        Unused(*part, keys);
    }
}

void CheckReader::ReadCondition(const toml::table& table, Condition& condition, Keys& used) {
    constexpr std::array<std::string_view, 5> kSubjects = {"fact", "section", "sensor", "all",
                                                           "any"};
    const auto said = std::ranges::count_if(
            kSubjects, [&table](std::string_view key) { return table.contains(key); });
    if (said != 1) {
        return Complain(LineOf(table),
                        "a condition is about one of: fact, section, sensor, all, "
                        "any");
    }
    if (table.contains("fact")) ReadFact(table, condition, used);
    if (table.contains("section")) ReadSection(table, condition, used);
    if (table.contains("sensor")) ReadSensor(table, condition, used);
    if (table.contains("all")) ReadParts(table, "all", condition, used);
    if (table.contains("any")) ReadParts(table, "any", condition, used);
}

namespace {

// The most groups that any pattern has.
int MostGroups(const Condition& condition) {
    int most = condition.pattern == nullptr ? 0 : condition.pattern->NumberOfCapturingGroups();
    for (const Condition& part : condition.parts) most = std::max(most, MostGroups(part));
    return most;
}

}  // namespace

void CheckReader::CheckTemplate(const toml::table& table, std::string_view key,
                                const Check& check) {
    const toml::node* const node = table.get(key);
    if (node == nullptr) return;
    const std::string& text = key == "says" ? check.says : check.hint;
    ForEachName(text, [&](std::string_view name) {
        if (name == "count" || FindFactRow(name) != nullptr) return;
        const bool group = name.size() == 1 && name[0] >= '0' && name[0] <= '9';
        if (group && check.condition && name[0] - '0' <= MostGroups(*check.condition)) return;
        Complain(LineOf(*node), "{" + Printable(name) + "} is no fact, no group of the pattern " +
                                        "and not {count}");
    });
}

void CheckReader::ReadCheck(const toml::table& table) {
    const size_t before = complaints_.size();
    Keys used{"severity"};
    Check check;
    check.id = Text(table, "id", used).value_or("");
    check.origin = file_ == kBuiltIn ? file_ : file_ + ":" + std::to_string(line_ + LineOf(table));
    if (!IsId(check.id)) {
        Complain(LineOf(table), "a check is to have an id of letters, digits and dashes");
    } else if (!ids_.insert(check.id).second) {
        Complain(LineOf(*table.get("id")), Quoted(check.id) + " is there twice in this file");
    }
    const bool known = checks_.places_.contains(check.id) || IsCode(check.id);
    const auto word = Text(table, "severity", used);
    bool graded = false;
    for (const Severity severity :
         {Severity::kNone, Severity::kNote, Severity::kWarning, Severity::kError}) {
        if (word != WordOf(severity)) continue;
        check.severity = severity;
        graded = true;
    }
    const bool conditioned =
            std::ranges::any_of(std::array{"fact", "section", "sensor", "all", "any"},
                                [&table](const char* key) { return table.contains(key); });
    if (!graded && (word || conditioned || !table.contains("hint"))) {
        Complain(word ? LineOf(*table.get("severity")) : LineOf(table),
                 "severity is to be error, warning, note or none");
    }
    check.says = Text(table, "says", used).value_or("");
    check.hint = Text(table, "hint", used).value_or("");
    check.build_type = Text(table, "build_type", used).value_or("");
    check.device = Text(table, "device", used).value_or("");
    check.since_build = Text(table, "since_build", used).value_or("");
    check.fixed_since = Text(table, "fixed_since", used).value_or("");
    if (conditioned) {
        ReadCondition(table, check.condition.emplace(), used);
        if (check.says.empty())
            Complain(LineOf(table), "says is missing: the sentence to be shown");
    } else if (!known) {
        Complain(LineOf(table), "the check has no condition: fact, section, sensor, all or any");
    }
    Unused(table, used);
    CheckTemplate(table, "says", check);
    CheckTemplate(table, "hint", check);
    if (complaints_.size() > before) return;
    if (!conditioned && !graded) {  // then it is but another hint
        const auto place = checks_.places_.find(check.id);
        const auto* const code = std::ranges::find(kCodeChecks, check.id, &Checks::CodeCheck::id);
        check.severity = place == checks_.places_.end() ? code->severity
                                                        : checks_.checks_[place->second].severity;
    }
    checks_.Put(std::move(check));
}

void CheckReader::ReadExpectation(const toml::table& table) {
    const size_t before = complaints_.size();
    Keys used;
    Expectation expected;
    expected.section = Text(table, "section", used).value_or("");
    expected.failure = ReadPattern(table, "failure", used);
    expected.why = Text(table, "why", used).value_or("");
    Unused(table, used);
    if (!ServiceSection(expected.section) &&
        std::ranges::find(kOtherTitles, expected.section) == std::end(kOtherTitles)) {
        Complain(LineOf(table), "no section is called " + Quoted(expected.section));
    }
    if (table.get("failure") == nullptr) Complain(LineOf(table), "failure is missing");
    if (expected.why.empty()) Complain(LineOf(table), "why is missing: what makes it no fault");
    if (complaints_.size() == before) checks_.expected_.push_back(std::move(expected));
}

Checks::Checks() {
    LoadText(BuiltInText(), kBuiltIn, false);
    built_in_ = checks_.size();
}

std::string_view Checks::BuiltInText() {
    return ChecksBuilt();
}

std::vector<Checks::CodeCheck> Checks::CodeChecks() {
    return {std::begin(kCodeChecks), std::end(kCodeChecks)};
}

std::vector<std::string> Checks::Load(const std::string& file, bool examples) {
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream text;
    if (!stream || !(text << stream.rdbuf())) {
        return {file + ":1: it can't be read, or is empty"};
    }
    return LoadText(text.str(), file, examples);
}

std::vector<std::string> Checks::LoadText(std::string_view text, const std::string& file,
                                          bool examples) {
    return CheckReader(*this, file, examples).Read(text);
}

// Gives the conditions that are about sections their numbers.
void Checks::Number(Condition& condition) {
    if (!condition.sections.empty()) condition.sighting = sightings_++;
    for (Condition& part : condition.parts) Number(part);
}

void Checks::Put(Check check) {
    if (check.condition) Number(*check.condition);
    const auto place = places_.find(check.id);
    if (place == places_.end() && !check.condition) {
        weights_[check.id] = {check.severity, check.hint};
        return;
    }
    if (place == places_.end()) {
        places_.emplace(check.id, checks_.size());
        checks_.push_back(std::move(check));
        return;
    }
    Check& known = checks_[place->second];
    if (check.condition) {
        known = std::move(check);
        return;
    }
    known.severity = check.severity;
    known.origin = check.origin;
    if (!check.says.empty()) known.says = std::move(check.says);
    if (!check.hint.empty()) known.hint = std::move(check.hint);
}

const Checks::Weight* Checks::WeightOf(std::string_view id) const {
    const auto found = weights_.find(id);
    return found == weights_.end() ? nullptr : &found->second;
}

bool Checks::IsReplaced(std::string_view id) const {
    return places_.contains(id);
}

std::string_view Checks::WhyExpected(const Section& section) const {
    if (section.failure.empty()) return {};
    for (const Expectation& expected : expected_) {
        if (expected.section != "*" && expected.section != section.title) continue;
        if (re2::RE2::FullMatch(section.failure, *expected.failure)) return expected.why;
    }
    return {};
}

namespace {

const std::string* FindValue(const std::vector<Fact>& facts, std::string_view key) {
    for (const Fact& fact : facts) {
        if (fact.row->key == key) return &fact.value;
    }
    return nullptr;
}

// "NWB1.261109.004" of "norvel/tarn/tarn:14/NWB1.261109.004/2047113:userdebug/dev-keys", or the
// whole.
std::string_view BuildId(std::string_view build) {
    constexpr int kBefore = 3;  // slashes
    std::string_view id = build;
    for (int i = 0; i < kBefore; ++i) {
        const size_t slash = id.find('/');
        if (slash == std::string_view::npos) return build;
        id.remove_prefix(slash + 1);
    }
    return id.substr(0, id.find('/'));
}

// Whether one build is older than the other: numbers in their names by their value.
bool Older(std::string_view one, std::string_view other) {
    const auto digit = [](char c) { return c >= '0' && c <= '9'; };
    const auto number = [&digit](std::string_view& text) {
        size_t size = 0;
        while (size < text.size() && digit(text[size])) ++size;
        std::string_view digits = text.substr(0, size);
        text.remove_prefix(size);
        while (digits.size() > 1 && digits[0] == '0') digits.remove_prefix(1);
        return digits;
    };
    while (!one.empty() && !other.empty()) {
        if (digit(one[0]) && digit(other[0])) {
            const std::string_view a = number(one);
            const std::string_view b = number(other);
            if (a.size() != b.size()) return a.size() < b.size();
            if (a != b) return a < b;
            continue;
        }
        if (one[0] != other[0]) return one[0] < other[0];
        one.remove_prefix(1);
        other.remove_prefix(1);
    }
    return one.empty() && !other.empty();
}

}  // namespace

bool Applies(const Check& check, const std::vector<Fact>& facts) {
    const auto is = [&facts](std::string_view key, const std::string& wanted) {
        const std::string* const value = FindValue(facts, key);
        return wanted.empty() || (value != nullptr && *value == wanted);
    };
    if (!is("build.type", check.build_type) || !is("device", check.device)) return false;
    if (check.since_build.empty() && check.fixed_since.empty()) return true;
    const std::string* const build = FindValue(facts, "build");
    if (build == nullptr) return false;
    const std::string_view id = BuildId(*build);
    if (!check.since_build.empty() && Older(id, BuildId(check.since_build))) return false;
    return check.fixed_since.empty() || Older(id, BuildId(check.fixed_since));
}

}  // namespace reader
