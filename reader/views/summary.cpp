#include "summary.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>
#include <utility>
#include <vector>

#include "comparison.h"
#include "sensor_kinds.h"
#include "sensor_statistics.h"
#include "units.h"
#include "utf8.h"

namespace reader {
namespace {

constexpr size_t kColumns = 80;
constexpr size_t kSlowest = 5;

enum class Style { kPlain, kBold, kRed, kYellow };

template <typename... Values>
std::string Format(const char* format, Values... values) {
    std::array<char, 512> text;
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

// Where the text, which is too long for `width` columns, is broken: at a blank behind its first
// word, if there is one.
size_t BreakAt(std::string_view text, size_t width) {
    const size_t word = text.find_first_not_of(' ');
    size_t at = 0;
    size_t blank = 0;
    for (size_t columns = 0; columns < width; ++columns) {
        if (text[at] == ' ' && at > word) blank = at;
        at += NextUtf8(text.substr(at)).size;
    }
    return blank > 0 ? blank : at;
}

// Lines for a terminal: folded, with nothing in them that would steer it.
class Screen {
  public:
    explicit Screen(bool colour) : colour_(colour) {}

    // One line, or several where it is too long, the later ones indented by `indent`.
    void Line(std::string_view text, Style style = Style::kPlain, size_t indent = 4) {
        std::string rest = Printable(text);
        while (Columns(rest) > kColumns) {
            const size_t at = BreakAt(rest, kColumns);
            Put(rest.substr(0, at), style);
            rest.erase(0, rest[at] == ' ' ? at + 1 : at);
            rest.insert(0, indent, ' ');
        }
        Put(rest, style);
    }
    void Gap() {
        if (!text_.empty()) text_ += '\n';
    }
    void Heading(std::string_view text, Style style = Style::kBold) {
        Gap();
        Line(text, style);
    }
    std::string Take() { return std::move(text_); }

  private:
    void Put(std::string_view line, Style style) {
        constexpr std::array<const char*, 4> kCodes = {"", "\x1b[1m", "\x1b[31m", "\x1b[33m"};
        const bool coloured = colour_ && style != Style::kPlain;
        if (coloured) text_ += kCodes[static_cast<size_t>(style)];
        text_ += line;
        if (coloured) text_ += "\x1b[0m";
        text_ += '\n';
    }

    const bool colour_;
    std::string text_;
};

std::string Value(const Report& report, const char* key) {
    const Fact* const fact = report.FindFact(key);
    if (fact == nullptr) return "";
    const char* const unit = fact->row->unit;
    return fact->value + (*unit == '\0' ? "" : " ") + unit;
}

// The values that the report tells, one after the other, each behind its word.
std::string Values(const Report& report,
                   std::initializer_list<std::pair<const char*, const char*>> words_and_keys) {
    std::string values;
    for (const auto& [word, key] : words_and_keys) {
        const std::string value = Value(report, key);
        if (value.empty()) continue;
        if (!values.empty()) values += ", ";
        values += word + value;
    }
    return values;
}

std::string Duration(const std::string& value) {
    const double seconds = std::strtod(value.c_str(), nullptr);
    if (!(seconds >= 60 && seconds < 1e12)) return value;
    const auto whole = static_cast<long long>(seconds);
    if (whole < 3600) return Format("%lld min %lld s", whole / 60, whole % 60);
    if (whole < 86400) return Format("%lld h %lld min", whole / 3600, whole / 60 % 60);
    return Format("%lld d %lld h", whole / 86400, whole / 3600 % 24);
}

bool Good(const Report& report) {
    return report.failed() == 0 && report.complete() && report.BlackBoxTrouble().empty();
}

void ShowDevice(Screen& screen, const Report& report) {
    const std::string device =
            Values(report, {{"", "device"}, {"serial ", "serial"}, {"", "build.type"}});
    screen.Line(device.empty() ? "A device that the report doesn't name" : device, Style::kBold);
    if (const std::string build = Value(report, "build"); !build.empty()) screen.Line(build);
    const std::string reported = Values(report, {{"reported ", "report.time"}});
    const std::string uptime = Value(report, "uptime");
    if (!reported.empty()) {
        screen.Line(reported + (uptime.empty() ? "" : ", up " + Duration(uptime)));
    }
    const std::string boot =
            Values(report, {{"booted ", "boot.time"}, {"boot reason ", "boot.reason"}});
    if (!boot.empty()) screen.Line(boot);
}

void ShowFailures(Screen& screen, const Report& report) {
    const size_t unfinished =
            static_cast<size_t>(std::ranges::count(report.sections, false, &Section::complete));
    std::string heading =
            Format("%zu sections, %zu failed", report.sections.size(), report.failed());
    if (unfinished > 0) heading += Format(", %zu not finished", unfinished);
    screen.Heading(heading, report.failed() + unfinished > 0 ? Style::kRed : Style::kBold);
    for (const Section& section : report.sections) {
        const std::string_view trouble = section.Trouble();
        if (trouble.empty()) continue;
        screen.Line("  " + section.title + ": " + std::string(trouble), Style::kRed);
    }
    if (report.cut) screen.Line("  The report was cut within a line", Style::kRed);
    HostCheck host;
    for (const Section& section : report.sections) host.Add(section);
    if (const std::string sentence = host.Sentence(); !sentence.empty()) screen.Line(sentence);
}

std::string SensorLine(const Sensor& sensor, const SensorStatistics& statistics) {
    std::string line = "  " + sensor.name;
    line.append(Columns(sensor.name) < 18 ? 18 - Columns(sensor.name) : 1, ' ');
    if (!sensor.skipped.empty()) return line;
    const SensorKind::Shape shape = KindOf(sensor).shape;
    if (shape == SensorKind::Shape::kWear) {
        return line + Format("%8zu periods of wear", statistics.records);
    }
    line += Format("%8zu records", statistics.records);
    if (statistics.records > 1) line += Format("  %8.1f s", statistics.span);
    if (statistics.rate > 0 && shape != SensorKind::Shape::kEvent) {
        line += Format("  %7.2f Hz", statistics.rate);
    }
    return line;
}

void ShowSensors(Screen& screen, const Report& report) {
    const BlackBox* const black_box = report.black_box ? &*report.black_box : nullptr;
    screen.Heading("Black box: " + DescribeBlackBox(black_box),
                   report.BlackBoxTrouble().empty() ? Style::kBold : Style::kRed);
    if (!report.black_box) return;
    std::vector<const Sensor*> sensors;
    for (const Sensor& sensor : report.black_box->sensors) sensors.push_back(&sensor);
    std::ranges::stable_sort(sensors, {}, &Sensor::number);
    for (const Sensor* const sensor : sensors) {
        const SensorStatistics statistics = Measure(*report.black_box, *sensor);
        const std::string trouble = SensorTrouble(*sensor, statistics, report.BootSeconds());
        const std::string line = SensorLine(*sensor, statistics);
        if (trouble.empty()) {
            screen.Line(line);
        } else if (Columns(line) + 2 + Columns(trouble) <= kColumns) {
            screen.Line(line + "  " + trouble, Style::kYellow);
        } else {
            screen.Line(line, Style::kYellow);
            screen.Line("      " + trouble, Style::kYellow, 6);
        }
    }
}

void ShowState(Screen& screen, const Report& report) {
    const std::string battery = Values(report, {{"", "battery.level"},
                                                {"", "battery.status"},
                                                {"health ", "battery.health"},
                                                {"", "battery.temperature"},
                                                {"", "battery.voltage"},
                                                {"", "battery.current"},
                                                {"cycles ", "battery.cycles"}});
    const std::string charging =
            Values(report, {{"limited: ", "charging.limit"}, {"stops at ", "charging.stop"}});
    const std::string modem =
            Values(report, {{"", "modem.state"}, {"restart logs: ", "modem.restarts"}});
    const std::string worn = Value(report, "worn");
    const std::pair<const char*, std::string> lines[] = {
            {"Battery   ", battery},
            {"Charging  ", charging},
            {"Modem     ", modem},
            {"Worn      ", worn.empty() ? "" : Duration(worn)}};
    bool any = false;
    for (const auto& [word, text] : lines) {
        if (text.empty()) continue;
        if (!std::exchange(any, true)) screen.Gap();
        screen.Line(word + text, Style::kPlain, 10);
    }
}

void ShowSlowest(Screen& screen, const Report& report) {
    std::vector<const Section*> sections;
    for (const Section& section : report.sections) {
        if (section.complete) sections.push_back(&section);
    }
    const size_t count = std::min(kSlowest, sections.size());
    if (count == 0) return;
    std::ranges::partial_sort(sections, sections.begin() + static_cast<std::ptrdiff_t>(count),
                              std::ranges::greater{}, &Section::seconds);
    screen.Heading("Slowest");
    for (size_t i = 0; i < count; ++i) {
        screen.Line(Format("%9.3f s  ", sections[i]->seconds) + sections[i]->title);
    }
}

void ShowCompleteness(Screen& screen, const Report& report) {
    std::string line = report.complete()         ? "Complete: "
                       : report.sections.empty() ? "No sections: "
                                                 : "NOT complete: ";
    line += HumanSize(report.size);
    if (!report.sections.empty()) line += ", ends with " + report.sections.back().title;
    line += report.verbose ? "; verbose" : "; not verbose";
    screen.Heading(line, report.complete() ? Style::kPlain : Style::kRed);
}

// "[1]", as the reports are called in a comparison; the first is 0.
std::string Mark(size_t report) {
    return std::string("[").append(std::to_string(report)).append("] ");
}

// What each report has, on one line if there is room.
void ShowSides(Screen& screen, const std::string& label, const std::vector<std::string>& sides,
               Style style) {
    std::string together = "  " + label;
    for (size_t i = 0; i < sides.size(); ++i) together += "  " + Mark(i) + sides[i];
    if (Columns(Printable(together)) <= kColumns) return screen.Line(together, style);
    screen.Line("  " + label, style);
    for (size_t i = 0; i < sides.size(); ++i) {
        screen.Line("      " + Mark(i) + sides[i], style, 10);
    }
}

// One line a section for which `differs`, under a heading if there is any.
template <typename Of>
bool ShowSections(Screen& screen, const Comparison& comparison, const char* heading,
                  bool Comparison::SectionLine::*differs, Style style, Of of) {
    bool any = false;
    for (const Comparison::SectionLine& line : comparison.sections) {
        if (!(line.*differs)) continue;
        if (!std::exchange(any, true)) screen.Heading(heading);
        std::vector<std::string> sides;
        for (const Section* const section : line.sections) {
            sides.push_back(section == nullptr ? "none" : of(*section));
        }
        ShowSides(screen, line.title, sides, style);
    }
    return any;
}

bool ShowSensorDifferences(Screen& screen, std::span<const Report> reports,
                           const Comparison& comparison) {
    bool any = false;
    if (comparison.black_box_differs) {
        any = true;
        screen.Heading("Black box");
        std::vector<std::string> sides;
        for (const Report& report : reports) {
            const std::string trouble = report.BlackBoxTrouble();
            sides.push_back(trouble.empty() ? "good" : trouble);
        }
        ShowSides(screen, "what is wrong", sides, Style::kRed);
    }
    bool headed = false;
    for (const Comparison::SensorLine& line : comparison.sensors) {
        if (std::ranges::find(line.stopped, true) == line.stopped.end()) continue;
        if (!std::exchange(headed, true)) screen.Heading("Sensors that stopped");
        std::vector<std::string> sides;
        for (size_t i = 0; i < line.sensors.size(); ++i) {
            const Sensor* const sensor = line.sensors[i];
            if (sensor == nullptr) {
                sides.emplace_back("not there");
                continue;
            }
            const std::string trouble = SensorTrouble(
                    *sensor, Measure(*reports[i].black_box, *sensor), reports[i].BootSeconds());
            sides.push_back(!trouble.empty()        ? trouble
                            : sensor->times.empty() ? "no records"
                                                    : "good");
        }
        ShowSides(screen, line.name, sides, Style::kYellow);
    }
    return any || headed;
}

bool ShowDifferences(Screen& screen, std::span<const Report> reports,
                     const Comparison& comparison) {
    using Line = Comparison::SectionLine;
    const auto verdict = [](const Section& section) {
        const std::string_view trouble = section.Trouble();
        return std::string(trouble.empty() ? "good" : trouble);
    };
    bool any = ShowSections(screen, comparison, "Sections that fail in only some",
                            &Line::trouble_differs, Style::kRed, verdict);
    any |= ShowSections(screen, comparison, "Sections that only some have", &Line::missing_in_some,
                        Style::kYellow, verdict);
    any |= ShowSensorDifferences(screen, reports, comparison);
    bool headed = false;
    for (const Comparison::FactLine& line : comparison.facts) {
        if (!line.differs) continue;
        if (!std::exchange(headed, true)) screen.Heading("Facts that differ");
        std::vector<std::string> sides;
        for (const Report& report : reports) {
            const std::string value = Value(report, line.row->key);
            sides.push_back(value.empty() ? "not told" : value);
        }
        ShowSides(screen, line.row->label, sides, Style::kPlain);
    }
    any |= headed;
    any |= ShowSections(screen, comparison, "Sections that took more than twice as long",
                        &Line::time_differs, Style::kPlain,
                        [](const Section& section) { return Format("%.3f s", section.seconds); });
    return any;
}

bool ShowComparison(Screen& screen, std::span<const Report> reports) {
    for (size_t i = 0; i < reports.size(); ++i) {
        const Report& report = reports[i];
        std::string line = Mark(i) + report.file + ": " +
                           Values(report, {{"", "device"},
                                           {"serial ", "serial"},
                                           {"reported ", "report.time"},
                                           {"sections ", "sections"},
                                           {"failed ", "failed"}});
        if (!report.complete()) line += ", not complete";
        screen.Line(line, Good(report) ? Style::kPlain : Style::kRed);
    }
    const Comparison comparison = Compare(reports, false);
    const bool differs = ShowDifferences(screen, reports, comparison);
    if (!differs) screen.Heading("Nothing differs");
    bool headed = false;
    for (const Comparison::SectionLine& line : comparison.sections) {
        if (line.trouble_differs || line.missing_in_some) continue;
        const std::string trouble(line.sections[0]->Trouble());
        if (trouble.empty()) continue;
        if (!std::exchange(headed, true)) screen.Heading("Sections that fail in all");
        screen.Line("  " + line.title + ": " + trouble);
    }
    return !differs;
}

}  // namespace

Summary Summarize(std::span<const Report> reports, bool colour) {
    Screen screen(colour);
    bool good = std::ranges::all_of(reports, Good);
    if (reports.size() > 1) {
        good = ShowComparison(screen, reports) && good;
        return {screen.Take(), good};
    }
    const Report& report = reports.front();
    ShowDevice(screen, report);
    ShowFailures(screen, report);
    ShowSensors(screen, report);
    ShowState(screen, report);
    ShowSlowest(screen, report);
    ShowCompleteness(screen, report);
    return {screen.Take(), good};
}

std::string DescribeBlackBox(const BlackBox* black_box) {
    if (black_box == nullptr) return "not in the report";
    const std::string trouble = black_box->Trouble();
    if (trouble == BlackBox::kNoData) {
        return "no data came; the device's system log says why (tag tev-dumpstate)";
    }
    if (black_box->sensors.empty()) return trouble;
    const std::string counts =
            Format("%zu sensors, %zu records", black_box->sensors.size(), black_box->records());
    return trouble.empty() ? counts : counts + "; " + trouble;
}

void HostCheck::Add(const Section& section) {
    if (section.kind != Section::Kind::kCommand) return;
    ++commands_;
    const std::string_view failure = section.failure;
    if (failure.starts_with("cannot run /vendor/bin/") &&
        failure.ends_with(": No such file or directory")) {
        ++without_program_;
    }
}

std::string HostCheck::Sentence() const {
    constexpr size_t kFew = 5;  // that a device may lack
    if (without_program_ <= kFew || without_program_ * 2 <= commands_) return "";
    return "A host without /vendor/bin: no more shows than its own /proc and /sys.";
}

}  // namespace reader
