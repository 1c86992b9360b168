#include "comparison.h"

#include <algorithm>
#include <functional>
#include <map>
#include <optional>
#include <string_view>
#include <tuple>
#include <unordered_set>
#include <utility>

namespace reader {
namespace {

constexpr double kTimesSlower = 2;
constexpr double kSecondsSlower = 0.050;

template <typename Pointers>
bool MissingInSome(const Pointers& pointers) {
    return std::ranges::count(pointers, nullptr) > 0;
}

std::vector<Comparison::FactLine> CompareFacts(std::span<const Report> reports) {
    // The table's order is that of each report's facts; rows are elements of one array.
    std::map<const FactRow*, std::vector<const Fact*>> lines;
    for (size_t i = 0; i < reports.size(); ++i) {
        for (const Fact& fact : reports[i].facts) {
            auto& line = lines.try_emplace(fact.row, reports.size()).first->second;
            line[i] = &fact;
        }
    }
    std::vector<Comparison::FactLine> facts;
    for (auto& [row, line] : lines) {
        const Fact* const first = line.front();
        const bool differs = std::ranges::any_of(line, [first](const Fact* fact) {
            return first == nullptr || fact == nullptr || !SameFact(*first, *fact);
        });
        facts.push_back({row, std::move(line), differs});
    }
    return facts;
}

bool TimeDiffers(const std::vector<const Section*>& sections) {
    std::optional<double> least;
    double most = 0;
    for (const Section* const section : sections) {
        if (section == nullptr || !section->complete) continue;
        least = std::min(least.value_or(section->seconds), section->seconds);
        most = std::max(most, section->seconds);
    }
    return least && most > *least * kTimesSlower && most - *least > kSecondsSlower;
}

bool SameText(const Source& one, TextRange a, const Source& other, TextRange b) {
    constexpr uint64_t kPiece = uint64_t{256} << 10;
    if (a.size() != b.size()) return false;
    std::string left;
    std::string right;
    for (uint64_t at = 0; at < a.size(); at += kPiece) {
        const uint64_t size = std::min(kPiece, a.size() - at);
        left.clear();
        right.clear();
        if (!one.ReadAt({a.begin + at, a.begin + at + size}, left)) return false;
        if (!other.ReadAt({b.begin + at, b.begin + at + size}, right)) return false;
        if (left != right) return false;
    }
    return true;
}

bool TextDiffers(std::span<const Report> reports, const std::vector<const Section*>& sections) {
    std::optional<size_t> first;
    for (size_t i = 0; i < sections.size(); ++i) {
        if (sections[i] == nullptr) continue;
        if (first && !SameText(*reports[*first].source, sections[*first]->text, *reports[i].source,
                               sections[i]->text)) {
            return true;
        }
        if (!first) first = i;
    }
    return false;
}

// In the order of the first report; what only later ones have stands behind what it follows there.
std::vector<Comparison::SectionLine> AlignSections(std::span<const Report> reports) {
    using Lines = std::vector<Comparison::SectionLine>;
    // The nth of a title; and where its line is, counted in lines that were ever made.
    std::map<std::pair<std::string_view, size_t>, size_t> known;
    std::vector<size_t> order;
    Lines lines;
    for (size_t i = 0; i < reports.size(); ++i) {
        std::map<std::string_view, size_t> seen;
        std::vector<std::vector<size_t>> behind(lines.size() + 1);  // [0]: before all
        size_t previous = 0;
        for (const Section& section : reports[i].sections) {
            const auto [at, is_new] =
                    known.try_emplace({section.title, seen[section.title]++}, lines.size());
            if (is_new) {
                lines.push_back({section.title, {}, false, false, false});
                lines.back().sections.resize(reports.size());
                behind[previous].push_back(at->second);
            } else {
                previous = at->second + 1;
            }
            lines[at->second].sections[i] = &section;
        }
        std::vector<size_t> merged = behind[0];
        for (const size_t line : order) {
            merged.push_back(line);
            merged.insert(merged.end(), behind[line + 1].begin(), behind[line + 1].end());
        }
        order = std::move(merged);
    }
    Lines ordered;
    for (const size_t line : order) ordered.push_back(std::move(lines[line]));
    return ordered;
}

std::vector<Comparison::SectionLine> CompareSections(std::span<const Report> reports, bool texts) {
    std::vector<Comparison::SectionLine> lines = AlignSections(reports);
    for (Comparison::SectionLine& line : lines) {
        line.missing_in_some = MissingInSome(line.sections);
        line.time_differs = TimeDiffers(line.sections);
        line.text_differs = texts && TextDiffers(reports, line.sections);
    }
    return lines;
}

std::vector<Comparison::SensorLine> CompareSensors(std::span<const Report> reports) {
    std::map<std::pair<unsigned, size_t>, Comparison::SensorLine> lines;
    for (size_t i = 0; i < reports.size(); ++i) {
        std::map<unsigned, size_t> seen;
        for (size_t box = 0; box < reports[i].black_boxes.size(); ++box) {
            const std::vector<Sensor>& sensors = reports[i].black_boxes[box].sensors;
            for (size_t at = 0; at < sensors.size(); ++at) {
                const size_t nth = seen[sensors[at].number]++;
                Comparison::SensorLine& line = lines[{sensors[at].number, nth}];
                line.number = sensors[at].number;
                line.nth = nth;
                line.sensors.resize(reports.size());
                if (line.name.empty()) line.name = sensors[at].name;
                line.sensors[i] = {box, at};
            }
        }
    }
    std::vector<Comparison::SensorLine> sensors;
    for (auto& [number, line] : lines) sensors.push_back(std::move(line));
    return sensors;
}

// What stands beside a finding that is only in other reports.
class Otherwise {
  public:
    Otherwise(const Report& report, const Verdict& verdict)
        : has_box_(!report.black_boxes.empty()) {
        for (const Finding& finding : verdict.findings) subjects_.insert(finding.subject);
        for (const Section& section : report.sections) titles_.insert(section.title);
        for (const BlackBox& black_box : report.black_boxes) {
            for (const Sensor& sensor : black_box.sensors) names_.insert(sensor.name);
        }
    }
    const char* Word(const Finding& finding) const {
        const bool of_sensor = finding.check.starts_with("sensor-");
        if (of_sensor && !has_box_) return "no black box";
        if (of_sensor && subjects_.contains(finding.subject)) return "other trouble";
        if (finding.sensor && !names_.contains(finding.subject)) return "not there";
        if (finding.index && !titles_.contains(finding.section)) return "not there";
        return "good";
    }

  private:
    const bool has_box_;
    std::unordered_set<std::string_view> titles_;
    std::unordered_set<std::string_view> names_;
    std::unordered_set<std::string_view> subjects_;  // of what is wrong
};

std::vector<Comparison::FindingLine> CompareFindings(std::span<const Report> reports,
                                                     std::span<const Verdict> verdicts) {
    using Key = std::tuple<Severity, std::string_view, std::string_view, size_t>;
    std::map<Key, std::vector<const Finding*>, std::greater<>> lines;
    std::vector<Key> order;
    for (size_t i = 0; i < reports.size(); ++i) {
        std::map<std::pair<std::string_view, std::string_view>, size_t> seen;
        for (const Finding& finding : verdicts[i].findings) {
            const size_t nth = seen[{finding.check, finding.subject}]++;
            const auto [line, is_new] = lines.try_emplace(
                    Key{finding.severity, finding.check, finding.subject, nth}, reports.size());
            line->second[i] = &finding;
            if (is_new) order.push_back(line->first);
        }
    }
    std::ranges::stable_sort(order, std::ranges::greater(),
                             [](const Key& key) { return std::get<0>(key); });
    std::vector<Otherwise> otherwise;
    for (size_t i = 0; i < reports.size(); ++i) otherwise.emplace_back(reports[i], verdicts[i]);
    std::vector<Comparison::FindingLine> findings;
    for (const Key& key : order) {
        Comparison::FindingLine line{std::string(std::get<1>(key)),
                                     std::string(std::get<2>(key)),
                                     std::move(lines[key]),
                                     {},
                                     false};
        const Finding* const any = *std::ranges::find_if(
                line.findings, [](const Finding* finding) { return finding != nullptr; });
        for (size_t i = 0; i < reports.size(); ++i) {
            line.otherwise.push_back(otherwise[i].Word(*any));
            const Finding* const finding = line.findings[i];
            line.differs = line.differs || finding == nullptr ||
                           (finding->what != any->what && !finding->sensor);
        }
        findings.push_back(std::move(line));
    }
    return findings;
}

}  // namespace

Comparison Compare(std::span<const Report> reports, std::span<const Verdict> verdicts, bool texts) {
    Comparison comparison;
    comparison.facts = CompareFacts(reports);
    comparison.sections = CompareSections(reports, texts);
    comparison.sensors = CompareSensors(reports);
    comparison.findings = CompareFindings(reports, verdicts);
    return comparison;
}

}  // namespace reader
