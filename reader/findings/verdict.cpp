#include "verdict.h"

#include <algorithm>
#include <cmath>
#include <functional>

#include "clock_time.h"
#include "sensor_kinds.h"
#include "units.h"

namespace reader {
namespace {

// The service's times are in whole seconds, and the boot's is counted back from such a one.
constexpr double kClockSeconds = 2;
// The black box itself may take five seconds to come, and the clocks are no better than two.
constexpr double kUnaccountedSeconds = 8;
// The modem's logs are waited for this long at most; longer, and it is the sensors that stopped.
constexpr double kMostWaitedSeconds = 60;
// What the service itself pauses between the black box and the times.
constexpr double kPauseSeconds = 2;
// A device may have fewer sensors than are known, but a block that has most of them has lost the
// others: of a sensor of which no piece has come, the service knows nothing to say.
constexpr size_t kMostSensors = 5;

std::string Seconds(double seconds) {
    return seconds < 60 ? Fixed(seconds, seconds < 10 ? 2 : 1) + " s" : Duration(seconds);
}

void Append(std::string& list, const std::string& what) {
    list += (list.empty() ? "" : "; ") + what;
}

// Looks at one report.
class Judgement {
  public:
    explicit Judgement(const Report& report) : report_(report) {}
    Verdict Take();

  private:
    using Place = Finding::SensorPlace;

    void JudgeWholeness();
    void JudgeSections();
    void JudgeLosses();
    void JudgeMissingSections();
    void JudgeBlackBoxes();
    void JudgeBlackBox(size_t at);
    void JudgeMissing(size_t at);
    void JudgeSensor(Place place);
    void JudgeRecords(Place place);
    bool IsFromTheFuture(const BlackBox& black_box) const;
    void JudgeTime();

    Finding& Add(const char* check, Severity severity, std::string subject, std::string what);
    // Something of the report is missing.
    Finding& AddLoss(const char* check, std::string subject, std::string what);
    Finding& AddSensor(const char* check, Severity severity, Place place, std::string what);
    void AddBlackBoxTrouble(const std::string& what);
    const Sensor& At(Place place) const {
        return report_.black_boxes[place.black_box].sensors[place.sensor];
    }
    std::string At(uint64_t nanoseconds) const { return Moment(report_, nanoseconds); }

    const Report& report_;
    Verdict verdict_;
    size_t troubles_ = 0;  // told of the black box
    bool ahead_ = false;   // the black box that is looked at has records from the future
};

Finding& Judgement::Add(const char* check, Severity severity, std::string subject,
                        std::string what) {
    Finding finding;
    finding.check = check;
    finding.severity = severity;
    finding.says = subject + " " + what;
    finding.subject = std::move(subject);
    finding.what = std::move(what);
    verdict_.Add(std::move(finding));
    return verdict_.findings.back();
}

Finding& Judgement::AddLoss(const char* check, std::string subject, std::string what) {
    verdict_.complete = false;
    return Add(check, Severity::kError, std::move(subject), std::move(what));
}

Finding& Judgement::AddSensor(const char* check, Severity severity, Place place, std::string what) {
    Finding& finding = Add(check, severity, At(place).name, std::move(what));
    finding.sensor = place;
    return finding;
}

void Judgement::AddBlackBoxTrouble(const std::string& what) {
    constexpr size_t kMostTold = 20;
    if (troubles_++ < kMostTold) Append(verdict_.black_box, what);
    if (troubles_ == kMostTold + 1) Append(verdict_.black_box, "and more");
}

void Judgement::JudgeSections() {
    for (const Section& section : report_.sections) {
        if (section.failure.empty() || !section.expected.empty()) continue;
        const bool late = section.failure.starts_with("timed out after ");
        Finding& finding = Add(late ? "section-timed-out" : "section-failed", Severity::kError,
                               section.title, "");
        finding.what = section.failure;
        finding.says = section.title + ": " + section.failure;
        finding.section = section.title;
        finding.index = section.index;
        finding.evidence = "*** " + section.failure;
        if (section.failure.starts_with("cannot open : ")) {
            finding.says += " (its path is empty: the property that names it isn't set)";
        }
    }
}

// A report is whole when it begins with the service's first line and ends with the section that the
// service writes last, all that began has ended, and no line is cut.
void Judgement::JudgeWholeness() {
    const Tally& tally = report_.tally;
    const bool open_box = !report_.black_boxes.empty() && !report_.black_boxes.back().ended &&
                          report_.black_boxes.back().text.end == report_.size;
    if (!report_.at_end || report_.cut || open_box) {
        std::string where = tally.sections == 0 ? "ends before any section" : "ends";
        if (open_box) {
            where = "ends within the black box";
        } else if (!report_.sections.empty() && !report_.sections.back().complete &&
                   report_.sections.back().index + 1 == tally.sections) {
            where = "ends within " + tally.last;
        } else if (tally.sections > 0) {
            where = "ends after " + tally.last;
        }
        if (report_.cut) where += ", within a line";
        Finding& finding = AddLoss("report-cut", "The report", where);
        finding.hint = "A whole one ends with " + std::string(LastServiceSection()) +
                       "; what comes before the cut is right.";
    }
    if (!report_.has_first_line) {
        AddLoss("text-lost", "The report",
                "doesn't begin with the service's first line, \"verbose logging: ...\": what came "
                "before is lost");
    }
    for (const Section& section : report_.sections) {
        const bool last = section.index + 1 == tally.sections;
        if (section.complete || (last && !report_.at_end)) continue;
        Finding& finding = AddLoss("text-lost", section.title, "");
        finding.what = "not finished: its end is lost";
        finding.says = section.title + " is not finished: its end is lost";
        finding.section = section.title;
        finding.index = section.index;
    }
}

void Judgement::JudgeLosses() {
    using Kind = ReportParser::Loss::Kind;
    for (const ReportParser::Loss& loss : report_.losses) {
        if (loss.kind == Kind::kHeader) {
            AddLoss("text-lost", loss.title, "has an end and no beginning: its header is lost");
        } else if (loss.kind == Kind::kAround) {
            Finding& finding = AddLoss("text-lost", "The report",
                                       "has lines outside of any section: what was around them is "
                                       "lost");
            finding.evidence = loss.title;
        } else if (loss.kind == Kind::kFooter) {
            AddLoss("text-lost", loss.title,
                    "seems to hold other sections of this report: a footer and a header are lost");
        } else if (loss.kind == Kind::kFirstLine) {
            AddLoss("text-lost", "The report", "is followed by another whose beginning is lost");
        } else {
            AddLoss("text-lost", "The report",
                    "is followed by another before it has come to its end");
        }
    }
    if (report_.at_end) JudgeMissingSections();
    if (report_.lost > report_.losses.size()) {
        AddLoss("text-lost", "The report",
                "lacks " + Grouped(report_.lost - report_.losses.size()) + " headers more");
    }
}

void Judgement::JudgeMissingSections() {
    constexpr size_t kMostNamed = 3;
    std::vector<std::string_view> missing = report_.tally.Missing();
    // Of those whose header alone was lost that is told.
    std::erase_if(missing, [this](std::string_view title) {
        return std::ranges::find(report_.losses, title, &ReportParser::Loss::title) !=
               report_.losses.end();
    });
    if (missing.empty()) return;
    std::string what = "lacks what every one has: ";
    for (size_t i = 0; i < std::min(missing.size(), kMostNamed); ++i) {
        what.append(i == 0 ? "" : ", ").append(missing[i]);
    }
    if (missing.size() > kMostNamed) {
        what += " and " + std::to_string(missing.size() - kMostNamed) + " sections more";
    }
    AddLoss("text-lost", "The report", std::move(what));
}

void Judgement::JudgeBlackBoxes() {
    if (report_.black_boxes.empty()) {
        verdict_.black_box = "not in the report";
        // Where the report was cut or text was lost, the device is not to blame.
        if (verdict_.complete)
            Add("black-box-lost", Severity::kError, "The sensor black box", "is not in the report")
                    .hint = SensorHint(report_.tally);
    }
    for (size_t at = 0; at < report_.black_boxes.size(); ++at) JudgeBlackBox(at);
}

void Judgement::JudgeBlackBox(size_t at) {
    const BlackBox& black_box = report_.black_boxes[at];
    if (black_box.headless) {
        AddLoss("text-lost", "The sensor black box", "has no heading: what stood there is lost");
        AddBlackBoxTrouble("its heading is lost");
    }
    if (black_box.odd_lines > 0) {
        AddLoss("text-lost", "The sensor black box",
                "has " + Counted(black_box.odd_lines, "line") +
                        " of no record: what stood there is lost");
        AddBlackBoxTrouble("text in it is lost");
    }
    if (!black_box.ended) AddBlackBoxTrouble("cut");
    if (!black_box.failure.empty()) {
        Finding& finding =
                Add("black-box-lost", Severity::kError, "The sensor black box", black_box.failure);
        finding.says = finding.subject + ": " + finding.what;
        finding.evidence = "*** " + black_box.failure;
        AddBlackBoxTrouble(black_box.failure);
    } else if (black_box.sensors.empty() && black_box.ended) {
        Add("black-box-lost", Severity::kError, "The sensor black box", "has no data").hint =
                SensorHint(report_.tally);
        AddBlackBoxTrouble("no data");
    }
    ahead_ = IsFromTheFuture(black_box);
    for (size_t i = 0; i < black_box.sensors.size(); ++i) JudgeSensor({at, i});
    JudgeMissing(at);
}

// Of a black box that has ended and lacks no text: else it is not the sensor that is missing.
void Judgement::JudgeMissing(size_t at) {
    const BlackBox& black_box = report_.black_boxes[at];
    if (!black_box.ended || black_box.torn || black_box.odd_lines > 0 || black_box.headless ||
        black_box.sensors.empty()) {
        return;
    }
    std::vector<const char*> missing;
    for (const SensorKind& known : KnownSensors()) {
        if (std::ranges::find(black_box.sensors, known.number, &Sensor::number) ==
            black_box.sensors.end()) {
            missing.push_back(known.name);
        }
    }
    // The exchange with the hub has stopped in the middle.
    const bool stopped = std::ranges::any_of(black_box.sensors, [](const Sensor& sensor) {
        return sensor.skipped == "Incomplete buffer";
    });
    if (!stopped && KnownSensors().size() - missing.size() < kMostSensors) return;
    for (const char* const name : missing) {
        Add("sensor-missing", Severity::kError, name, "is missing").hint =
                SensorHint(report_.tally);
        AddBlackBoxTrouble(std::string(name) + " is missing");
    }
}

void Judgement::JudgeSensor(Place place) {
    const Sensor& sensor = At(place);
    const bool ended = report_.black_boxes[place.black_box].ended;
    const bool last = place.sensor + 1 == report_.black_boxes[place.black_box].sensors.size();
    if (!sensor.skipped.empty()) {
        AddSensor("sensor-missing", Severity::kError, place, "was skipped: " + sensor.skipped)
                .hint = SensorHint(report_.tally);
        AddBlackBoxTrouble(sensor.name + " skipped: " + sensor.skipped);
    } else if (sensor.statistics.records > 0) {
        JudgeRecords(place);
    } else if (KindOf(sensor).steady() && (ended || !last)) {
        // Nobody need have made a gesture or worn it.
        AddSensor("sensor-empty", Severity::kError, place, "recorded nothing");
    }
}

// Whether a sensor that records all the time has records newer than the report.
bool Judgement::IsFromTheFuture(const BlackBox& black_box) const {
    const auto uptime = report_.UptimeSeconds();
    return uptime && std::ranges::any_of(black_box.sensors, [&](const Sensor& sensor) {
               return KindOf(sensor).steady() &&
                      static_cast<double>(sensor.statistics.newest) / 1e9 >
                              static_cast<double>(*uptime) + kClockSeconds;
           });
}

void Judgement::JudgeRecords(Place place) {
    const SensorStatistics& its = At(place).statistics;
    const BlackBox& black_box = report_.black_boxes[place.black_box];
    using enum Severity;
    // Few records of a block that was cut say nothing.
    constexpr size_t kFewRecords = 10;
    if (its.still && (black_box.ended || its.records >= kFewRecords))
        AddSensor("sensor-frozen", kWarning, place, "stood still, all values equal");
    if (its.frozen) {
        AddSensor("sensor-frozen", kWarning, place,
                  "froze at " + At(its.frozen->begin) +
                          (its.frozen_to_end ? "" : " for " + Seconds(its.frozen->seconds())));
    }
    if (its.stuck_columns != 0) {
        std::string axes;
        for (unsigned c = 0; c < 3; ++c) {
            if ((its.stuck_columns >> c & 1) == 0) continue;
            axes += (axes.empty() ? "" : ", ") + std::string(1, static_cast<char>('x' + c));
        }
        AddSensor("sensor-frozen", kWarning, place,
                  "stands still in " + axes + " since " + At(its.stuck_since) +
                          ", while the rest moves");
    }
    // Beside a clock that runs ahead of the report's all others seem silent, and so does what has
    // set its own back.
    if (its.silent > 0 && black_box.ended && !black_box.torn && black_box.odd_lines == 0 &&
        its.jumps == 0 && !ahead_) {
        AddSensor("sensor-silent", kWarning, place,
                  "was silent for the last " + Seconds(its.silent));
    }
    // Where text of the block was lost, records and headings were with it.
    const bool all_there = black_box.odd_lines == 0 && !black_box.headless;
    if (its.gaps > 0 && all_there) {
        AddSensor("sensor-gaps", kWarning, place,
                  (its.gaps == 1 ? "has a gap of "
                                 : "has " + Counted(its.gaps, "gap") + ", the longest of ") +
                          Seconds(its.longest_gap.seconds()) + " at " + At(its.longest_gap.begin));
    }
    if (its.jumps > 0 && all_there) {
        AddSensor("sensor-gaps", kWarning, place,
                  "has a clock that jumped back " +
                          (its.jumps == 1 ? "by " : Counted(its.jumps, "time") + ", once by ") +
                          Seconds(its.longest_jump.seconds()) + " at " + At(its.longest_jump.end));
    }
    if (its.repeated > 0) {
        AddSensor("sensor-gaps", kNote, place,
                  "has " + Counted(its.repeated, "record") + " with the time of the one before");
    }
    const auto uptime = report_.UptimeSeconds();
    const double newer =
            uptime ? static_cast<double>(its.newest) / 1e9 - static_cast<double>(*uptime) : 0;
    if (uptime && *uptime >= 0 && newer > kClockSeconds) {
        AddSensor("records-from-the-future", kWarning, place,
                  "has records newer than the report, by " + Seconds(newer) + " at most")
                .hint = "Their times, and what follows from them, are not to be believed.";
    }
}

// How long before the report all sensors that record all the time have stopped, as far as the
// sections between don't account for it.
void Judgement::JudgeTime() {
    const auto uptime = report_.UptimeSeconds();
    const auto& sections = report_.tally.seconds_before_now;
    if (!uptime || !sections || report_.black_boxes.size() != 1 ||
        !report_.black_boxes.front().ended || report_.black_boxes.front().torn ||
        report_.black_boxes.front().odd_lines > 0) {
        return;
    }
    uint64_t newest = 0;
    for (const Sensor& sensor : report_.black_boxes.front().sensors) {
        if (KindOf(sensor).steady()) newest = std::max(newest, sensor.statistics.newest);
    }
    if (newest == 0) return;
    const double passed = static_cast<double>(*uptime) - static_cast<double>(newest) / 1e9;
    const double unaccounted = passed - *sections - kPauseSeconds;
    if (unaccounted <= kUnaccountedSeconds) return;
    // The modem's logs are fetched meanwhile, where there is a bundle and verbose logging is on.
    if (unaccounted <= kMostWaitedSeconds && report_.verbose.value_or(true)) {
        verdict_.unaccounted = unaccounted;
        Add("time-unaccounted", Severity::kWarning, "About " + Seconds(std::round(unaccounted)),
            "passed between the black box and " + std::string(kTimesSection) +
                    " that no section accounts for")
                .hint =
                "The service waits there for the modem's logs: a logger that doesn't stop "
                "costs ten seconds and more.";
    } else {
        Add("sensor-silent", Severity::kWarning, "All sensors",
            "stopped about " + Seconds(std::round(unaccounted)) + " before the report, at " +
                    At(newest));
    }
}

Verdict Judgement::Take() {
    JudgeWholeness();
    JudgeLosses();
    JudgeSections();
    JudgeBlackBoxes();
    JudgeTime();
    return std::move(verdict_);
}

}  // namespace

std::string_view WordOf(Severity severity) {
    constexpr std::string_view kWords[] = {"none", "note", "warning", "error"};
    return kWords[static_cast<size_t>(severity)];
}

size_t Verdict::Count(Severity severity) const {
    return static_cast<size_t>(std::ranges::count(findings, severity, &Finding::severity));
}

std::string Verdict::CountOf(Severity severity) const {
    return Counted(Count(severity), WordOf(severity));
}

std::string Verdict::Counts() const {
    std::string counts;
    for (const Severity severity : {Severity::kError, Severity::kWarning, Severity::kNote}) {
        if (Count(severity) > 0) counts += (counts.empty() ? "" : ", ") + CountOf(severity);
    }
    return counts.empty() ? "nothing is wrong" : counts;
}

std::string Verdict::WordsOf(Finding::SensorPlace sensor) const {
    const auto found = words_.find({sensor.black_box, sensor.sensor});
    return found == words_.end() ? "" : found->second;
}

void Verdict::Add(Finding finding) {
    findings.push_back(std::move(finding));
}

void Verdict::Weigh(std::string_view check, Severity severity) {
    for (Finding& finding : findings) {
        if (finding.check == check) finding.severity = severity;
    }
    std::erase_if(findings, [](const Finding& f) { return f.severity == Severity::kNone; });
}

void Verdict::Sort() {
    std::ranges::stable_sort(findings, std::ranges::greater(), &Finding::severity);
    words_.clear();
    for (const Finding& finding : findings) {
        if (!finding.sensor) continue;
        std::string& words = words_[{finding.sensor->black_box, finding.sensor->sensor}];
        words += (words.empty() ? "" : ", ") + finding.what;
    }
}

Verdict Judge(const Report& report) {
    Verdict verdict = Judgement(report).Take();
    verdict.Sort();
    return verdict;
}

std::string DescribeBlackBoxes(const Report& report, const Verdict& verdict) {
    size_t sensors = 0;
    size_t records = 0;
    for (const BlackBox& black_box : report.black_boxes) {
        sensors += black_box.sensors.size();
        for (const Sensor& sensor : black_box.sensors) records += sensor.statistics.records;
    }
    if (sensors == 0) {
        if (verdict.black_box != "no data") return verdict.black_box;
        return report.tally.IsHost() ? "no data came, as a host has no sensor hub"
                                     : "no data came; the device's system log says why (logcat, "
                                       "./dev logcat, tag "
                                       "tev-dumpstate)";
    }
    const std::string counts = std::to_string(sensors) +
                               (sensors == 1 ? " sensor, " : " sensors, ") +
                               std::to_string(records) + (records == 1 ? " record" : " records");
    return verdict.black_box.empty() ? counts : counts + "; " + verdict.black_box;
}

std::string SensorHint(const Tally& tally) {
    if (tally.IsHost()) return "A host without /vendor/bin has no sensor hub either.";
    return "The device's system log says why, in lines with the tag tev-dumpstate: logcat -s "
           "tev-dumpstate, of the simulated wearable ./dev logcat, of a host journalctl -u dbus.";
}

std::string HostSentence(const Tally& tally) {
    return tally.IsHost() ? "A host without /vendor/bin: only its own /proc and /sys show." : "";
}

std::string Moment(const Report& report, uint64_t nanoseconds) {
    constexpr uint64_t kSecond = 1'000'000'000;
    const auto boot = report.BootSeconds();
    if (!boot || nanoseconds / kSecond >= uint64_t{1} << 40) {
        return Fixed(static_cast<double>(nanoseconds) / static_cast<double>(kSecond), 3) +
               " s after boot";
    }
    const Fact* const zone = report.FindFact("time.zone");
    return FormatTime(*boot + static_cast<int64_t>(nanoseconds / kSecond)) +
           (zone == nullptr ? "" : " " + zone->value);
}

}  // namespace reader
