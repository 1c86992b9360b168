#include "report.h"

#include <algorithm>
#include <utility>

#include "clock_time.h"

namespace reader {

size_t Report::failed() const {
    return static_cast<size_t>(std::ranges::count_if(
            sections, [](const Section& section) { return !section.failure.empty(); }));
}

bool Report::complete() const {
    return !sections.empty() && !cut && std::ranges::all_of(sections, &Section::complete);
}

std::string Report::BlackBoxTrouble() const {
    return black_box ? black_box->Trouble() : "not in the report";
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

ReportParser::Listener ReportBuilder::Listener() {
    return {.on_begin = {},
            .on_section = [this](Section&& section) { Add(std::move(section)); },
            .on_black_box = [this](BlackBox&& black_box) { Add(std::move(black_box)); },
            .on_outside = [this](TextRange range) { report_.outside.push_back(range); },
            .wants_text = IsFactSection};
}

void ReportBuilder::Add(Section&& section) {
    report_.sections.push_back(std::move(section));
}

// A second block is of a second report in the same file. Its sensors are shown too.
void ReportBuilder::Add(BlackBox&& black_box) {
    if (!report_.black_box) {
        report_.black_box = std::move(black_box);
        return;
    }
    BlackBox& first = *report_.black_box;
    std::ranges::move(black_box.sensors, std::back_inserter(first.sensors));
    if (first.failure.empty()) first.failure = std::move(black_box.failure);
}

void ReportBuilder::Finish(const ReportParser& parser) {
    report_.size = parser.size();
    says_verbose_ = parser.verbose().has_value();
    report_.verbose = parser.verbose().value_or(false);
    report_.cut = parser.cut();
    FindFacts(report_);
    for (Section& section : report_.sections) std::string().swap(section.captured);
}

std::string ReportBuilder::WhyNoReport(const std::string& name) const {
    if (report_.size == 0) return name + " is empty";
    if (says_verbose_ || !report_.sections.empty() || report_.black_box) return "";
    return name + " is no board report: no section begins in it";
}

std::string ReadReport(const std::string& file, bool texts, Report& report) {
    report.file = file;
    report.source = std::make_shared<Source>();
    if (std::string sentence = report.source->Open(file, texts); !sentence.empty()) {
        return sentence;
    }
    ReportBuilder builder(report);
    ReportParser parser(builder.Listener());
    for (std::string_view bytes; !(bytes = report.source->Read()).empty();) parser.Feed(bytes);
    parser.Finish();
    builder.Finish(parser);
    if (!report.source->error().empty()) return report.source->error();
    return builder.WhyNoReport(report.source->name());
}

}  // namespace reader
