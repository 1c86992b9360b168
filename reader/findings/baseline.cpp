#include "baseline.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <utility>

#include "json_fault.h"
#include "sensor_kinds.h"
#include "units.h"
#include "utf8.h"

namespace reader {
namespace {

using Json = nlohmann::ordered_json;

constexpr char kFormat[] = "boardreport-baseline";
constexpr int kVersion = 1;

// The thresholds, which doc/baseline.md justifies.
constexpr uint64_t kFewest = 20;       // reports, below which nothing is called usual
constexpr uint64_t kFewestAlike = 10;  // and those in which what it depends on is alike
constexpr double kExpectedPart =
        0.2;  // of the reports that fail alike, from which on it is expected
constexpr double kPresentPart = 0.99;     // that have a section, from which on it is missed
constexpr double kMostlyLess = 0.99;      // the quantile that a time is held against
constexpr double kSlowFactor = 4;         // as slow as that, and
constexpr double kSlowSeconds = 0.1;      // by so much
constexpr double kOutsideRange = 0.25;    // of the whole range, beyond its ends
constexpr double kOutsideQuarters = 1.5;  // of the middle half's range, beyond its ends
constexpr double kLeastPart = 0.03;       // of the number itself, at least
constexpr size_t kMostValues = 100;
constexpr size_t kMostFailures = 20;

// What is a device's own, or another in every report.
constexpr std::string_view kNotCompared[] = {"device",    "build",  "serial",
                                             "boot.time", "uptime", "report.time",
                                             "slowest",   "worn",   "modem.last_restart"};

// Numbers that go with something else, which is alike in the steps given; of words, when it is
// equal.
struct Dependence {
    std::string_view key;
    std::string_view on;
    int step;
};
constexpr Dependence kDependences[] = {{"battery.current", "battery.status", 0},
                                       {"battery.voltage", "battery.level", 20}};

const double kStep = std::log(1.02);
constexpr double kSmallest = 1e-6;
constexpr double kLargest = 1e15;

int BinOf(double number) {
    const double size = std::fabs(number);
    if (size < kSmallest) return 0;
    const int bin = 1 + static_cast<int>(std::log(std::min(size, kLargest) / kSmallest) / kStep);
    return number < 0 ? -bin : bin;
}

double NumberOf(int bin) {
    if (bin == 0) return 0;
    const double size = kSmallest * std::exp(kStep * (std::abs(bin) - 0.5));
    return bin < 0 ? -size : size;
}

// So that people see as many digits as there are.
std::string Told(double number) {
    const double size = std::fabs(number);
    std::string text = Fixed(number, size >= 100 ? 0 : size >= 10 ? 1 : size >= 0.1 ? 2 : 3);
    if (text.find('.') != std::string::npos) {
        text.erase(text.find_last_not_of('0') + 1);
        if (text.ends_with('.')) text.pop_back();
    }
    return text;
}

bool IsCompared(const FactRow& row) {
    return std::ranges::find(kNotCompared, row.key) == std::end(kNotCompared);
}

std::string ModelOf(const Report& report) {
    const Fact* const device = report.FindFact("device");
    return device == nullptr ? "" : device->value;
}

std::string Utf8(std::string_view text);

// "battery.voltage at battery.level 60": what the fact is counted by besides its key; "" where it
// depends on nothing.
std::string AlikeKey(const Report& report, const Fact& fact) {
    for (const Dependence& dependence : kDependences) {
        const Fact* const other = report.FindFact(dependence.on);
        if (fact.row->key != dependence.key || other == nullptr) continue;
        const std::string value =
                dependence.step == 0
                        ? Utf8(other->value)
                        : std::to_string(std::lround(std::strtod(other->value.c_str(), nullptr)) /
                                         dependence.step * dependence.step);
        return std::string(dependence.key) + " at " + std::string(dependence.on) + " " + value;
    }
    return "";
}

std::string Utf8(std::string_view text) {
    std::string valid;
    for (constexpr size_t kMost = 200; !text.empty() && valid.size() < kMost;) {
        const Utf8Step step = NextUtf8(text);
        valid += step.valid ? text.substr(0, step.size) : "?";
        text.remove_prefix(step.size);
    }
    return valid;
}

Json ToJson(const Spread& spread) {
    Json bins = Json::object();
    for (const auto& [bin, count] : spread.bins) bins[std::to_string(bin)] = count;
    return {{"least", spread.least()}, {"most", spread.most()}, {"bins", bins}};
}

// What doesn't fit throws one of the library's exceptions.
Spread SpreadOf(const Json& json) {
    Spread spread;
    for (const auto& [bin, count] : json.at("bins").items()) {
        spread.bins[std::stoi(bin)] = count.get<uint64_t>();
    }
    if (!spread.Restore(json.at("least").get<double>(), json.at("most").get<double>())) {
        throw std::out_of_range("bins that hold nothing");
    }
    return spread;
}

}  // namespace

void Spread::Add(double number) {
    if (!std::isfinite(number)) return;
    least_ = count_ == 0 ? number : std::min(least_, number);
    most_ = count_ == 0 ? number : std::max(most_, number);
    ++bins[BinOf(number)];
    ++count_;
}

void Spread::Add(const Spread& other) {
    if (other.count_ == 0) return;
    least_ = count_ == 0 ? other.least_ : std::min(least_, other.least_);
    most_ = count_ == 0 ? other.most_ : std::max(most_, other.most_);
    for (const auto& [bin, count] : other.bins) bins[bin] += count;
    count_ += other.count_;
}

bool Spread::Restore(double least, double most) {
    least_ = least;
    most_ = most;
    count_ = 0;
    for (const auto& [bin, count] : bins) count_ += count;
    return std::isfinite(least) && std::isfinite(most) && least <= most;
}

double Spread::Quantile(double part) const {
    const auto wanted = static_cast<uint64_t>(std::ceil(part * static_cast<double>(count_)));
    uint64_t below = 0;
    for (const auto& [bin, count] : bins) {
        below += count;
        if (below >= wanted) return std::clamp(NumberOf(bin), least_, most_);
    }
    return most_;
}

void Add(SectionsSeen& seen, const Section& section) {
    constexpr size_t kMostTitles = 10'000;
    if (seen.size() >= kMostTitles && !seen.contains(section.title)) return;
    SectionSeen& its = seen[section.title];
    if (its.count++ == 0 || section.seconds > its.seconds) {
        its.seconds = section.seconds;
        its.index = section.index;
    }
    if (section.failure.empty() || its.failures.size() >= kMostFailures) return;
    ++its.failures[Utf8(section.failure)];
}

bool Baseline::Learn(const Report& report, const SectionsSeen& sections) {
    if (!Judge(report).complete) return false;
    ++reports_;
    for (const auto& [title, seen] : sections) {
        SectionUsage& usage = sections_[Utf8(title)];
        ++usage.reports;
        usage.seconds.Add(seen.seconds);
        for (const auto& [failure, count] : seen.failures) ++usage.failures[failure];
    }
    Model& model = models_[Utf8(ModelOf(report))];
    ++model.reports;
    for (const Fact& fact : report.facts) {
        if (!IsCompared(*fact.row)) continue;
        FactUsage& usage = model.facts[fact.row->key];
        ++usage.reports;
        if (fact.row->number) {
            const double number = std::strtod(fact.value.c_str(), nullptr);
            usage.numbers.Add(number);
            if (const std::string alike = AlikeKey(report, fact); !alike.empty()) {
                FactUsage& its = model.facts[alike];
                ++its.reports;
                its.numbers.Add(number);
            }
        } else if (!usage.varied) {
            ++usage.values[Utf8(fact.value)];
            usage.varied = usage.values.size() > kMostValues;
            if (usage.varied) usage.values.clear();
        }
    }
    for (const BlackBox& black_box : report.black_boxes) {
        for (const Sensor& sensor : black_box.sensors) {
            if (!KindOf(sensor).steady() || sensor.statistics.rate <= 0) continue;
            model.rates[Utf8(sensor.name)].Add(sensor.statistics.rate);
        }
    }
    return true;
}

void Baseline::Merge(const Baseline& other) {
    reports_ += other.reports_;
    for (const auto& [title, usage] : other.sections_) {
        SectionUsage& mine = sections_[title];
        mine.reports += usage.reports;
        mine.seconds.Add(usage.seconds);
        for (const auto& [failure, count] : usage.failures) mine.failures[failure] += count;
    }
    for (const auto& [name, model] : other.models_) {
        Model& mine = models_[name];
        mine.reports += model.reports;
        for (const auto& [key, usage] : model.facts) {
            FactUsage& its = mine.facts[key];
            its.reports += usage.reports;
            its.numbers.Add(usage.numbers);
            for (const auto& [value, count] : usage.values) its.values[value] += count;
            its.varied = its.varied || usage.varied || its.values.size() > kMostValues;
            if (its.varied) its.values.clear();
        }
        for (const auto& [sensor, rates] : model.rates) mine.rates[sensor].Add(rates);
    }
}

bool Baseline::IsBaseline(std::string_view beginning) {
    return beginning.starts_with("{") &&
           beginning.substr(0, 200).find(kFormat) != std::string::npos;
}

std::string Baseline::Write() const {
    Json json = {{"format", kFormat}, {"version", kVersion}, {"reports", reports_}};
    Json& sections = json["sections"] = Json::object();
    for (const auto& [title, usage] : sections_) {
        sections[title] = {{"reports", usage.reports},
                           {"failures", usage.failures},
                           {"seconds", ToJson(usage.seconds)}};
    }
    Json& models = json["models"] = Json::object();
    for (const auto& [name, model] : models_) {
        Json& its = models[name] = {{"reports", model.reports}};
        Json& facts = its["facts"] = Json::object();
        for (const auto& [key, usage] : model.facts) {
            Json& fact = facts[key] = {{"reports", usage.reports}};
            if (usage.numbers.count() > 0) {
                fact["numbers"] = ToJson(usage.numbers);
            } else {
                fact["values"] = usage.varied ? Json() : Json(usage.values);
            }
        }
        Json& rates = its["rates"] = Json::object();
        for (const auto& [sensor, spread] : model.rates) rates[sensor] = ToJson(spread);
    }
    return json.dump() + "\n";
}

std::string Baseline::Read(std::string_view text) {
    try {
        const Json json = Json::parse(text);
        if (json.at("format") != kFormat) return "it is no baseline";
        if (json.at("version") != kVersion) return "it is of another version of boardreport";
        Baseline read;
        read.reports_ = json.at("reports").get<uint64_t>();
        for (const auto& [title, usage] : json.at("sections").items()) {
            SectionUsage& its = read.sections_[title];
            its.reports = usage.at("reports").get<uint64_t>();
            usage.at("failures").get_to(its.failures);
            its.seconds = SpreadOf(usage.at("seconds"));
        }
        for (const auto& [name, model] : json.at("models").items()) {
            Model& its = read.models_[name];
            its.reports = model.at("reports").get<uint64_t>();
            for (const auto& [key, fact] : model.at("facts").items()) {
                FactUsage& usage = its.facts[key];
                usage.reports = fact.at("reports").get<uint64_t>();
                if (fact.contains("numbers")) {
                    usage.numbers = SpreadOf(fact.at("numbers"));
                } else if (fact.at("values").is_null()) {
                    usage.varied = true;
                } else {
                    fact.at("values").get_to(usage.values);
                }
            }
            for (const auto& [sensor, rates] : model.at("rates").items()) {
                its.rates[sensor] = SpreadOf(rates);
            }
        }
        *this = std::move(read);
        return "";
    } catch (const std::exception& wrong) {
        return "it is none that boardreport baseline has made: " + JsonFault(wrong);
    }
}

namespace {

// "198 of 200"
std::string Of(uint64_t part, uint64_t all) {
    return Grouped(part) + " of " + Grouped(all);
}

}  // namespace

std::string Baseline::WhyExpected(const Section& section) const {
    const auto usage = sections_.find(section.title);
    if (usage == sections_.end() || usage->second.reports < kFewest) return "";
    const auto failure = usage->second.failures.find(Utf8(section.failure));
    if (failure == usage->second.failures.end()) return "";
    const auto& [of, count] = std::pair(usage->second.reports, failure->second);
    if (static_cast<double>(count) < kExpectedPart * static_cast<double>(of)) return "";
    return Of(count, of) + " reports of healthy devices have it too";
}

// Holds one report against a baseline.
class UnusualFinder {
  public:
    UnusualFinder(const Baseline& baseline, const Report& report, const SectionsSeen& seen)
        : baseline_(baseline), report_(report), seen_(seen) {}

    void LookAtSections(bool complete);
    void LookAtFacts(const Baseline::Model& model);
    void LookAtRates(const Baseline::Model& model);
    std::vector<Finding> Take();

  private:
    // How far outside a number is, in parts of what is still usual; 0 for what is usual.
    static double Outside(const Spread& spread, double number);
    static std::string Range(const Spread& spread, const std::string& unit);
    Finding& Add(double distance, std::string subject, std::string what);

    const Baseline& baseline_;
    const Report& report_;
    const SectionsSeen& seen_;
    std::vector<std::pair<double, Finding>> found_;
};

Finding& UnusualFinder::Add(double distance, std::string subject, std::string what) {
    Finding finding;
    finding.check = "unusual";
    finding.severity = Severity::kWarning;
    finding.says = subject + " " + what;
    finding.subject = std::move(subject);
    finding.what = std::move(what);
    found_.emplace_back(distance, std::move(finding));
    return found_.back().second;
}

double UnusualFinder::Outside(const Spread& spread, double number) {
    const double low = spread.Quantile(0.25);
    const double high = spread.Quantile(0.75);
    const double range = spread.most() - spread.least();
    const double floor = kLeastPart * std::max(std::fabs(spread.most()), std::fabs(spread.least()));
    const double beyond = std::max(kOutsideRange * range, floor);
    const double quarters = kOutsideQuarters * (high - low);
    const double least = std::min(spread.least() - beyond, low - quarters);
    const double most = std::max(spread.most() + beyond, high + quarters);
    if (number >= least && number <= most) return 0;
    const double unit = std::max({range, floor, 1e-9});
    return (number < least ? spread.least() - number : number - spread.most()) / unit;
}

std::string UnusualFinder::Range(const Spread& spread, const std::string& unit) {
    const std::string least = Told(spread.least());
    const std::string most = Told(spread.most());
    return least == most ? "all " + Grouped(spread.count()) + " others say " + most + unit
                         : "all " + Grouped(spread.count()) + " others are between " + least +
                                   " and " + most + unit;
}

void UnusualFinder::LookAtSections(bool complete) {
    for (const auto& [title, usage] : baseline_.sections_) {
        if (usage.reports < kFewest) continue;
        const auto seen = seen_.find(title);
        if (seen == seen_.end()) {
            const auto all = static_cast<double>(baseline_.reports_);
            if (!complete || static_cast<double>(usage.reports) < kPresentPart * all) continue;
            Add(1e6, title,
                "is missing; " + Of(usage.reports, baseline_.reports_) + " other reports have it");
            continue;
        }
        const double most = usage.seconds.Quantile(kMostlyLess);
        const double seconds = seen->second.seconds;
        if (seconds <= kSlowFactor * most || seconds <= most + kSlowSeconds) continue;
        Finding& finding =
                Add(seconds / std::max(most, 1e-3), title,
                    "took " + Fixed(seconds, 2) + " s; 99 of 100 take less than " +
                            Fixed(std::max(most, 0.001) + 0.0005, most < 0.1 ? 3 : 2) + " s");
        finding.section = title;
        finding.index = seen->second.index;
    }
}

void UnusualFinder::LookAtFacts(const Baseline::Model& model) {
    for (const Fact& fact : report_.facts) {
        auto found = model.facts.find(fact.row->key);
        if (found == model.facts.end() || found->second.reports < kFewest) continue;
        const auto alike = model.facts.find(AlikeKey(report_, fact));
        if (alike != model.facts.end() && alike->second.reports >= kFewestAlike) found = alike;
        const auto& usage = found->second;
        const std::string unit = *fact.row->unit == '\0' ? "" : std::string(" ") + fact.row->unit;
        double distance = 0;
        std::string what = "is " + fact.value + unit + "; ";
        if (usage.numbers.count() > 0) {
            distance = Outside(usage.numbers, std::strtod(fact.value.c_str(), nullptr));
            what += Range(usage.numbers, unit);
        } else if (!usage.varied && !usage.values.contains(Utf8(fact.value))) {
            const auto most = std::ranges::max_element(
                    usage.values, {}, [](const auto& value) { return value.second; });
            distance = 1e3;
            what += Of(most->second, usage.reports) + " others say " + most->first;
        }
        if (distance == 0) continue;
        Finding& finding = Add(distance, fact.row->label, what);
        finding.facts = {fact.row};
        finding.index = fact.section;
        finding.section = fact.row->section;
        if (fact.line > 0) finding.line = fact.line;
        finding.evidence = fact.evidence;
    }
}

void UnusualFinder::LookAtRates(const Baseline::Model& model) {
    for (size_t box = 0; box < report_.black_boxes.size(); ++box) {
        const auto& sensors = report_.black_boxes[box].sensors;
        for (size_t i = 0; i < sensors.size(); ++i) {
            const auto rates = model.rates.find(sensors[i].name);
            const SensorStatistics& its = sensors[i].statistics;
            constexpr size_t kFewRecords = 20;
            if (rates == model.rates.end() || rates->second.count() < kFewest) continue;
            if (its.records < kFewRecords || its.rate <= 0) continue;
            const double distance = Outside(rates->second, its.rate);
            if (distance == 0) continue;
            Finding& finding = Add(
                    distance, sensors[i].name,
                    "records " + Told(its.rate) + " times a second; " + Range(rates->second, ""));
            finding.sensor = Finding::SensorPlace{box, i};
        }
    }
}

std::vector<Finding> UnusualFinder::Take() {
    std::ranges::stable_sort(found_, std::ranges::greater(),
                             [](const auto& one) { return one.first; });
    std::vector<Finding> findings;
    for (auto& [distance, finding] : found_) findings.push_back(std::move(finding));
    return findings;
}

std::vector<Finding> Baseline::Unusual(const Report& report, const SectionsSeen& seen,
                                       bool complete) const {
    UnusualFinder finder(*this, report, seen);
    finder.LookAtSections(complete);
    const auto model = models_.find(Utf8(ModelOf(report)));
    if (model != models_.end()) {
        finder.LookAtFacts(model->second);
        finder.LookAtRates(model->second);
    }
    return finder.Take();
}

}  // namespace reader
