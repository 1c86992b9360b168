#include "report.h"

#include <algorithm>
#include <array>
#include <utility>

#include "clock_time.h"

namespace reader {
namespace {

constexpr size_t kMostLosses = 1000;

// What is given in a report's place, by how it begins.
struct Kind {
    std::string_view begin;
    const char* sentence;
};
constexpr Kind kKinds[] = {
        {"\x1f\x8b", " is a gzip file: gunzip it first"},
        {"\xFD\x37\x7A\x58\x5A", " is an xz file: unxz it first"},
        {"\x28\xB5\x2F\xFD", " is a zstd file: unzstd it first"},
        {"BZh", " is a bzip2 file: bunzip2 it first"},
        {"PK\x03\x04", " is a zip archive: unzip it first"},
        {"\xFF\xFE", " is UTF-16 text: iconv -f UTF-16 -t UTF-8 makes a report of it"},
        {"\xFE\xFF", " is UTF-16 text: iconv -f UTF-16 -t UTF-8 makes a report of it"},
        {"<!doctype html>", " is a page, of a report perhaps; the report itself is wanted"},
        {"{\"type\":", " holds records, not the report itself"},
};

}  // namespace

void Tally::Add(const Section& section) {
    ++sections;
    if (!section.failure.empty()) ++failed;
    if (!section.complete) ++unfinished;
    if (section.kind == Section::Kind::kCommand) {
        ++commands;
        const std::string_view failure = section.failure;
        if (failure.starts_with("cannot run /vendor/bin/") &&
            failure.ends_with(": No such file or directory")) {
            ++without_program;
        }
    }
    seconds += section.seconds;
    last = section.title;
    if (const auto service = ServiceSection(section.title)) seen.set(*service);
    if (section.complete && section.seconds > slowest_seconds) {
        slowest = section.title;
        slowest_seconds = section.seconds;
    }
}

std::vector<std::string_view> Tally::Missing() const {
    std::vector<std::string_view> missing;
    for (size_t i = 0; i < seen.size(); ++i) {
        if (IsOfAll(i) && !seen[i]) missing.push_back(ServiceTitle(i));
    }
    if (missing.size() * 2 > kSectionsOfAll) missing.clear();
    return missing;
}

bool Tally::IsHost() const {
    constexpr size_t kFew = 5;  // that a device may lack
    return without_program > kFew && without_program * 2 > commands;
}

bool Report::redacted() const {
    return std::ranges::any_of(facts, [](const Fact& fact) {
        if (fact.row->identifies == nullptr) return false;
        const std::string kind = std::string(fact.row->identifies) + "-";
        return fact.value.starts_with(kind) && fact.value.size() > kind.size() &&
               fact.value.find_first_not_of("0123456789", kind.size()) == std::string::npos;
    });
}

const Fact* Report::FindFact(std::string_view key) const {
    const auto found =
            std::ranges::find_if(facts, [key](const Fact& fact) { return fact.row->key == key; });
    return found == facts.end() ? nullptr : &*found;
}

std::optional<int64_t> Report::BootSeconds() const {
    const Fact* const boot = FindFact("boot.time");
    return boot == nullptr ? std::nullopt : ParseTime(boot->value);
}

std::optional<int64_t> Report::UptimeSeconds() const {
    const Fact* const now = FindFact("report.time");
    const auto boot = BootSeconds();
    const auto made = now == nullptr ? std::nullopt : ParseTime(now->value);
    if (!boot || !made) return {};
    return *made - *boot;
}

ReportParser::Listener ReportBuilder::Listener() {
    return {.on_begin = {},
            .on_section = [this](Section&& section) { Add(std::move(section)); },
            .on_black_box = [this](BlackBox&& black_box) { Add(std::move(black_box)); },
            .on_outside =
                    [this](TextRange range) {
                        if (keep_ == Keep::kEverything) report_.outside.push_back(range);
                    },
            .on_loss =
                    [this](const ReportParser::Loss& loss) {
                        if (report_.lost++ < kMostLosses) report_.losses.push_back(loss);
                    },
            .wants_text = IsFactSection};
}

void ReportBuilder::Add(Section&& section) {
    section.index = report_.tally.sections;
    report_.tally.Add(section);
    if (section.title == kTimesSection) {
        report_.tally.seconds_before_now = std::exchange(since_black_box_, std::nullopt);
    } else if (since_black_box_) {
        *since_black_box_ += section.seconds;
    }
    TakeFacts(section, report_.facts);
    std::string().swap(section.captured);
    if (keep_ == Keep::kEverything || !section.Trouble().empty()) {
        report_.sections.push_back(std::move(section));
    }
}

void ReportBuilder::Add(BlackBox&& black_box) {
    since_black_box_ = 0;
    if (keep_ == Keep::kWhatIsJudged) {
        for (Sensor& sensor : black_box.sensors) {
            sensor.times = {};
            sensor.values = {};
        }
    }
    report_.black_boxes.push_back(std::move(black_box));
}

void ReportBuilder::Finish(const ReportParser& parser) {
    report_.size = parser.size();
    report_.verbose = parser.verbose();
    report_.has_first_line = parser.has_first_line();
    report_.at_end = parser.at_end();
    report_.cut = parser.cut();
    FinishFacts(report_);
}

std::string_view WhatElse(std::string_view begin) {
    const auto* const kind = std::ranges::find_if(
            kKinds, [begin](const Kind& one) { return begin.starts_with(one.begin); });
    if (kind != std::end(kKinds)) return kind->sentence;
    if (begin.size() > 262 && begin.substr(257, 5) == "ustar") {
        return " is a tar archive, a bundle perhaps; the report itself is wanted";
    }
    return "";
}

std::string WhyNoReport(const Report& report, const std::string& name) {
    if (report.size == 0) return name + " is empty";
    const std::string_view begin = report.source->beginning();
    if (report.tally.sections == 0) {
        const std::string_view what = WhatElse(begin);
        if (!what.empty()) return name + std::string(what);
        if (begin.find(" ------\r\n") != std::string_view::npos ||
            (begin.starts_with("verbose logging: ") && begin.find("\r\n") < 32)) {
            return name + " has lines that end in CR LF, as no report has: dos2unix mends it";
        }
    }
    const bool empty = report.tally.sections == 0 && report.black_boxes.empty();
    if (report.has_first_line || !empty) return "";
    return name + " is no board report: no section begins in it";
}

std::string ReadReport(const std::string& file, bool texts, Report& report,
                       const std::function<void(Section&)>& look) {
    report.file = file;
    report.source = std::make_shared<Source>();
    if (std::string sentence = report.source->Open(file, texts); !sentence.empty()) {
        return sentence;
    }
    ReportBuilder builder(report);
    ReportParser::Listener listener = builder.Listener();
    if (look) {
        listener.on_section = [&](Section&& section) {
            section.index = report.tally.sections;
            look(section);
            builder.Add(std::move(section));
        };
    }
    ReportParser parser(std::move(listener));
    for (std::string_view bytes; !(bytes = report.source->Read()).empty();) {
        parser.Feed(bytes);
        if (look && !report.source->Keep(parser.NeededFrom())) break;
    }
    parser.Finish();
    builder.Finish(parser);
    if (!report.source->error().empty()) return report.source->error();
    return WhyNoReport(report, report.source->name());
}

}  // namespace reader
