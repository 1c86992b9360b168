#include "summary.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>
#include <utility>
#include <vector>

#include "comparison.h"
#include "sensor_kinds.h"
#include "units.h"
#include "utf8.h"
#include "verdict.h"

namespace reader {
namespace {

constexpr size_t kColumns = 80;
constexpr size_t kSlowest = 3;

enum class Style { kPlain, kBold, kRed, kYellow };

template <typename... Values>
std::string Format(const char* format, Values... values) {
    std::array<char, 512> text;
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

// Lines for a terminal: folded, with nothing in them that would steer it.
class Screen {
  public:
    explicit Screen(bool colour) : colour_(colour) {}

    // One line, or several where it is too long, the later ones indented by `indent`. What fills a
    // screen by itself is cut.
    void Line(std::string_view text, Style style = Style::kPlain, size_t indent = 4) {
        const std::string printable = Printable(text.substr(0, kLongest));
        std::string_view rest = printable;
        std::string before;
        while (Columns(rest) + before.size() > kColumns) {
            const size_t at = BreakAt(rest, kColumns - before.size());
            Put(before, rest.substr(0, at), style);
            rest.remove_prefix(rest[at] == ' ' ? at + 1 : at);
            before.assign(indent, ' ');
        }
        Put(before, rest, style);
        if (text.size() > kLongest) Put(std::string(indent, ' '), "...", style);
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
    static constexpr size_t kLongest = 1200;

    // Where the text, which is too long for `width` columns, is broken: at a blank behind its first
    // word, if there is one.
    static size_t BreakAt(std::string_view text, size_t width) {
        const size_t word = text.find_first_not_of(' ');
        size_t at = 0;
        size_t blank = 0;
        for (size_t columns = 0; columns < width; ++columns) {
            if (text[at] == ' ' && at > word) blank = at;
            at += NextUtf8(text.substr(at)).size;
        }
        return blank > 0 ? blank : at;
    }

    void Put(std::string_view before, std::string_view line, Style style) {
        constexpr std::array<const char*, 4> kCodes = {"", "\x1b[1m", "\x1b[31m", "\x1b[33m"};
        const bool coloured = colour_ && style != Style::kPlain;
        if (coloured) text_ += kCodes[static_cast<size_t>(style)];
        text_ += before;
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

std::string DurationOf(const std::string& value) {
    return Duration(std::strtod(value.c_str(), nullptr));
}

Style StyleOf(Severity severity) {
    return severity == Severity::kError     ? Style::kRed
           : severity == Severity::kWarning ? Style::kYellow
                                            : Style::kPlain;
}

Style StyleOf(const Verdict& verdict) {
    return verdict.Count(Severity::kError) > 0     ? Style::kRed
           : verdict.Count(Severity::kWarning) > 0 ? Style::kYellow
                                                   : Style::kBold;
}

// What a terminal's reader has no use for more of.
constexpr size_t kMostFindings = 100;

void ShowFindings(Screen& screen, const Report& report, const Verdict& verdict) {
    if (verdict.good()) screen.Line("Nothing is wrong", Style::kBold);
    Severity severity = Severity::kNone;
    size_t told = 0;
    for (const Finding& finding : verdict.findings) {
        if (told++ == kMostFindings) {
            screen.Line("  and " + Grouped(verdict.findings.size() - kMostFindings) + " more");
            break;
        }
        const Style style = StyleOf(finding.severity);
        if (severity != finding.severity) {
            severity = finding.severity;
            screen.Line(verdict.CountOf(severity), style);
        }
        screen.Line("  " + finding.says, style);
        if (!finding.section.empty() && !finding.says.starts_with(finding.section)) {
            std::string place = "      " + finding.section;
            if (finding.line) place += ", line " + std::to_string(*finding.line);
            if (!finding.evidence.empty()) place += ": " + finding.evidence;
            screen.Line(place, Style::kPlain, 8);
        }
    }
    const auto expected = static_cast<size_t>(std::ranges::count_if(
            report.sections, [](const Section& section) { return !section.expected.empty(); }));
    if (expected > 0) {
        screen.Line("  " + Counted(expected, "section") + " failed as those of healthy devices do");
    }
    if (const std::string host = HostSentence(report.tally); !host.empty()) screen.Line(host);
}

void ShowDevice(Screen& screen, const Report& report) {
    const std::string device =
            Values(report, {{"", "device"}, {"serial ", "serial"}, {"", "build.type"}});
    screen.Heading(device.empty() ? "A device that the report doesn't name" : device);
    if (const std::string build = Value(report, "build"); !build.empty()) screen.Line(build);
    std::string reported = Value(report, "report.time");
    if (!reported.empty()) {
        const std::string zone = Value(report, "time.zone");
        const std::string uptime = Value(report, "uptime");
        reported = "reported " + reported + " " + (zone.empty() ? "(zone not known)" : zone);
        screen.Line(reported + (uptime.empty() ? "" : ", up " + DurationOf(uptime)));
    }
    const std::string boot =
            Values(report, {{"booted ", "boot.time"}, {"boot reason ", "boot.reason"}});
    if (!boot.empty()) screen.Line(boot);
}

// "55 sections, 2 failed"
std::string CountsOf(const Tally& tally) {
    std::string counts = Format("%zu sections, %zu failed", tally.sections, tally.failed);
    if (tally.unfinished > 0) counts += Format(", %zu not finished", tally.unfinished);
    return counts;
}

std::string SensorLine(const Sensor& sensor) {
    std::string line = "  " + sensor.name;
    line.append(Columns(sensor.name) < 18 ? 18 - Columns(sensor.name) : 1, ' ');
    if (!sensor.skipped.empty()) return line;
    const SensorStatistics& statistics = sensor.statistics;
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

// As many as a hub has; the findings name those of more that something is wrong with.
constexpr size_t kMostSensors = 50;

// "Accelerometer 25.00 Hz, TiltToWake 8 records"
std::string FineSensors(const std::vector<const Sensor*>& sensors) {
    std::string line;
    for (const Sensor* const sensor : sensors) {
        const SensorStatistics& its = sensor->statistics;
        line += (line.empty() ? "" : ", ") + sensor->name;
        line += KindOf(*sensor).steady() && its.rate > 0 ? Format(" %.2f Hz", its.rate)
                                                         : Format(" %zu", its.records);
    }
    return line;
}

// Of those that are fine one line, of the others one each.
void ShowSensors(Screen& screen, const Report& report, const Verdict& verdict) {
    screen.Heading("Black box: " + DescribeBlackBoxes(report, verdict),
                   verdict.black_box.empty() ? Style::kBold : Style::kRed);
    std::vector<const Sensor*> fine;
    size_t told = 0;
    for (size_t box = 0; box < report.black_boxes.size(); ++box) {
        const std::vector<Sensor>& sensors = report.black_boxes[box].sensors;
        for (size_t i = 0; i < sensors.size(); ++i) {
            if (told == kMostSensors) continue;
            ++told;
            const std::string words = verdict.WordsOf({box, i});
            if (words.empty()) {
                fine.push_back(&sensors[i]);
                continue;
            }
            const std::string line = SensorLine(sensors[i]);
            if (Columns(line) + 2 + Columns(words) <= kColumns) {
                screen.Line(line + "  " + words, Style::kYellow);
            } else {
                screen.Line(line, Style::kYellow);
                screen.Line("      " + words, Style::kYellow, 6);
            }
        }
    }
    std::ranges::stable_sort(fine, {}, &Sensor::number);
    if (!fine.empty()) screen.Line("  Fine: " + FineSensors(fine), Style::kPlain, 8);
    size_t count = 0;
    for (const BlackBox& black_box : report.black_boxes) count += black_box.sensors.size();
    if (count > told) screen.Line("  and " + Grouped(count - told) + " more");
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
            {"Worn      ", worn.empty() ? "" : DurationOf(worn)}};
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
    std::string line;
    for (size_t i = 0; i < count; ++i) {
        line += Format("%s%.3f s ", i == 0 ? "" : ", ", sections[i]->seconds) + sections[i]->title;
    }
    screen.Line("Slowest   " + line, Style::kPlain, 10);
}

void ShowCompleteness(Screen& screen, const Report& report, const Verdict& verdict) {
    std::string line = verdict.complete             ? "Complete: "
                       : report.tally.sections == 0 ? "No sections: "
                                                    : "NOT complete: ";
    line += HumanSize(report.size);
    if (report.tally.sections > 0) line += ", ends with " + report.tally.last;
    line += !report.verbose   ? "; not known whether verbose"
            : *report.verbose ? "; verbose"
                              : "; not verbose";
    screen.Heading(line, verdict.complete ? Style::kPlain : Style::kRed);
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

// What is wrong in which of them; true when that differs.
bool ShowFindings(Screen& screen, const Comparison& comparison) {
    if (comparison.findings.empty()) screen.Heading("Nothing is wrong in any of them");
    bool differs = false;
    size_t told = 0;
    for (const Comparison::FindingLine& line : comparison.findings) {
        differs = differs || line.differs;
        if (told++ == kMostFindings) {
            screen.Line("  and " + Grouped(comparison.findings.size() - kMostFindings) + " more");
        }
        if (told > kMostFindings) continue;
        if (told == 1) screen.Heading("What is wrong in which");
        std::vector<std::string> sides;
        Severity severity = Severity::kNone;
        for (size_t i = 0; i < line.findings.size(); ++i) {
            const Finding* const finding = line.findings[i];
            sides.push_back(finding == nullptr ? line.otherwise[i] : finding->what);
            if (finding != nullptr) severity = std::max(severity, finding->severity);
        }
        ShowSides(screen, line.subject, sides, StyleOf(severity));
    }
    return differs;
}

bool ShowDifferences(Screen& screen, std::span<const Report> reports,
                     const Comparison& comparison) {
    using Line = Comparison::SectionLine;
    bool any = ShowSections(
            screen, comparison, "Sections that only some have", &Line::missing_in_some,
            Style::kYellow, [](const Section& section) {
                return std::string(section.Trouble().empty() ? "good" : section.Trouble());
            });
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

bool ShowComparison(Screen& screen, std::span<const Report> reports,
                    std::span<const Verdict> verdicts) {
    const Comparison comparison = Compare(reports, verdicts, false);
    for (size_t i = 0; i < reports.size(); ++i) {
        const Report& report = reports[i];
        std::string line =
                Mark(i) + report.file + ": " + verdicts[i].Counts() + "; " + CountsOf(report.tally);
        if (!verdicts[i].complete) line += ", NOT complete";
        const std::string about = Values(
                report, {{"", "device"}, {"serial ", "serial"}, {"reported ", "report.time"}});
        screen.Line(line + (about.empty() ? "" : "; " + about), StyleOf(verdicts[i]));
    }
    const bool other_findings = ShowFindings(screen, comparison);
    const bool differs = ShowDifferences(screen, reports, comparison) || other_findings;
    if (!differs) screen.Heading("Nothing differs");
    return !differs;
}

}  // namespace

Summary Summarize(std::span<const Report> reports, std::span<const Verdict> verdicts, bool colour) {
    Screen screen(colour);
    bool good = std::ranges::all_of(verdicts, &Verdict::good);
    if (reports.size() > 1) {
        good = ShowComparison(screen, reports, verdicts) && good;
        return {screen.Take(), good};
    }
    const Report& report = reports.front();
    const Verdict& verdict = verdicts.front();
    ShowFindings(screen, report, verdict);
    ShowDevice(screen, report);
    screen.Heading(CountsOf(report.tally));
    ShowSensors(screen, report, verdict);
    ShowState(screen, report);
    ShowSlowest(screen, report);
    ShowCompleteness(screen, report, verdict);
    return {screen.Take(), good};
}

}  // namespace reader
