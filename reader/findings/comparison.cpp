#include "comparison.h"

#include <algorithm>
#include <functional>
#include <map>
#include <optional>
#include <string_view>
#include <utility>

#include "sensor_kinds.h"
#include "sensor_statistics.h"

namespace reader {
namespace {

constexpr double kTimesSlower = 2;
constexpr double kSecondsSlower = 0.050;

template <typename Pointers>
bool MissingInSome(const Pointers& pointers) {
    return std::ranges::count(pointers, nullptr) > 0;
}

// Whether what `of` makes of the elements differs; of those that are missing too, unless they are
// to be left out.
template <typename Pointer, typename Of>
bool Differ(const std::vector<Pointer>& pointers, bool missing_differs, Of of) {
    const Pointer* first = nullptr;
    for (const Pointer& pointer : pointers) {
        if (pointer == nullptr) {
            if (missing_differs) return true;
            continue;
        }
        if (first != nullptr && std::invoke(of, **first) != std::invoke(of, *pointer)) return true;
        if (first == nullptr) first = &pointer;
    }
    return false;
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
        const bool differs =
                Differ(line, true, [](const Fact& fact) -> std::string_view { return fact.value; });
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
                lines.push_back({section.title, {}, false, false, false, false});
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
        line.trouble_differs = Differ(line.sections, false, &Section::Trouble);
        line.time_differs = TimeDiffers(line.sections);
        line.text_differs = texts && TextDiffers(reports, line.sections);
    }
    return lines;
}

bool Stopped(const Report& report, const Sensor* sensor) {
    if (sensor == nullptr || !sensor->skipped.empty()) return true;
    // Nobody need have made a gesture or worn it.
    if (sensor->times.empty()) return KindOf(*sensor).steady();
    const SensorStatistics statistics = Measure(*report.black_box, *sensor);
    return statistics.still || statistics.frozen_to_end || statistics.silent > 0;
}

std::vector<Comparison::SensorLine> CompareSensors(std::span<const Report> reports) {
    std::map<unsigned, Comparison::SensorLine> lines;
    for (size_t i = 0; i < reports.size(); ++i) {
        if (!reports[i].black_box) continue;
        for (const Sensor& sensor : reports[i].black_box->sensors) {
            Comparison::SensorLine& line = lines[sensor.number];
            line.number = sensor.number;
            line.sensors.resize(reports.size());
            if (line.name.empty()) line.name = sensor.name;
            if (line.sensors[i] == nullptr) line.sensors[i] = &sensor;
        }
    }
    std::vector<Comparison::SensorLine> sensors;
    for (auto& [number, line] : lines) {
        for (size_t i = 0; i < reports.size(); ++i) {
            line.stopped.push_back(Stopped(reports[i], line.sensors[i]));
        }
        if (std::ranges::all_of(line.stopped, std::identity{}))
            line.stopped.assign(reports.size(), false);
        sensors.push_back(std::move(line));
    }
    return sensors;
}

}  // namespace

Comparison Compare(std::span<const Report> reports, bool texts) {
    Comparison comparison;
    comparison.facts = CompareFacts(reports);
    comparison.sections = CompareSections(reports, texts);
    comparison.sensors = CompareSensors(reports);
    comparison.black_box_differs = std::ranges::any_of(reports, [&](const Report& report) {
        return report.BlackBoxTrouble() != reports[0].BlackBoxTrouble();
    });
    return comparison;
}

}  // namespace reader
