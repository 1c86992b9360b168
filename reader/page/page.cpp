#include "page.h"

#include <algorithm>

#include "page_built.h"
#include "page_html.h"
#include "page_parts.h"
#include "service_sections.h"
#include "units.h"

namespace reader {
namespace {

constexpr size_t kColours = 12;  // as many as the style has

std::string Title(const PageContent& page) {
    const Report& report = page.reports.front();
    std::string title;
    for (const char* const key : {"device", "report.time"}) {
        const Fact* const fact = report.FindFact(key);
        if (fact != nullptr) title += fact->value + ", ";
    }
    title += page.compared() ? Grouped(page.reports.size()) + " board reports" : "board report";
    return title;
}

}  // namespace

PageContent::PageContent(std::span<const Report> all, std::span<const Verdict> found,
                         const PageOptions& chosen)
    : reports(all), verdicts(found), options(chosen), comparison(Compare(all, verdicts, true)) {
    for (size_t line = 0; line < comparison.sections.size(); ++line) {
        for (const Section* const section : comparison.sections[line].sections) {
            if (section != nullptr) lines.emplace(section, line);
        }
    }
    for (size_t line = 0; line < comparison.sensors.size(); ++line) {
        for (size_t i = 0; i < reports.size(); ++i) {
            const auto& place = comparison.sensors[line].sensors[i];
            if (place) figures.emplace(&SensorOf(i, *place), line);
        }
    }
    if (compared()) return;
    PlaceSections();
    for (const Finding& finding : verdicts.front().findings) {
        if (!finding.line || !finding.index) continue;
        if (!options.whole && reports[0].sections[*finding.index].text.size() > kLargestText) {
            continue;
        }
        Severity& severity = marked[*finding.index][*finding.line];
        severity = std::max(severity, finding.severity);
    }
}

// The one that tells the time says what time it was when it ran; the others ran before and after
// it.
void PageContent::PlaceSections() {
    const Report& report = reports.front();
    const auto uptime = report.UptimeSeconds();
    const auto now = std::ranges::find(report.sections, kTimesSection, &Section::title);
    if (!uptime || now == report.sections.end()) return;
    double at = static_cast<double>(*uptime);
    begins.resize(report.sections.size());
    for (auto section = now; section != report.sections.end(); ++section) {
        begins[section->index] = at;
        at += section->seconds;
    }
    at = static_cast<double>(*uptime) - verdicts.front().unaccounted;
    for (auto section = now; section != report.sections.begin();) {
        --section;
        at -= section->seconds;
        begins[section->index] = at;
    }
}

std::optional<double> PageContent::BeginOf(const Section& section) const {
    if (begins.empty()) return {};
    return begins[section.index];
}

std::string PageContent::TargetOf(size_t report, const Finding& finding) const {
    if (finding.index) {
        const Section& section = reports[report].sections[*finding.index];
        const size_t line = LineOf(section);
        return finding.line && MarkedLines(section) != nullptr ? LineId(line, *finding.line)
                                                               : SectionId(line);
    }
    if (finding.sensor) {
        return SensorId(comparison.sensors[figures.at(&SensorOf(report, *finding.sensor))]);
    }
    const bool of_sensors =
            finding.check.starts_with("sensor-") || finding.check.starts_with("black-box");
    return of_sensors ? "sensors" : finding.check == "time-unaccounted" ? "timeline" : "sections";
}

const std::map<uint64_t, Severity>* PageContent::MarkedLines(const Section& section) const {
    const auto found = marked.find(section.index);
    return compared() || found == marked.end() ? nullptr : &found->second;
}

std::string ReportName(size_t report) {
    std::string name = "[";
    return name.append(std::to_string(report)).append("]");
}

std::string BaseName(const std::string& file) {
    return file == "-" ? "standard input" : file.substr(file.rfind('/') + 1);
}

void WriteChip(Html& html, const PageContent& page, size_t report) {
    if (!page.compared()) return;
    html << " <b class=\"chip chip-" << report % kColours + 1 << "\">";
    html.Text(ReportName(report)) << "</b> ";
}

std::string SectionId(size_t line) {
    return "section-" + std::to_string(line);
}

std::string LineId(size_t section, uint64_t line) {
    return SectionId(section) + "-line-" + std::to_string(line);
}

Markup ClassOf(Severity severity) {
    return severity == Severity::kError     ? "bad"
           : severity == Severity::kWarning ? Markup("doubtful")
                                            : Markup("noted");
}

std::string SensorId(const Comparison::SensorLine& line) {
    return "sensor-" + std::to_string(line.number) +
           (line.nth == 0 ? "" : "-" + std::to_string(line.nth + 1));
}

void WriteLink(Html& html, std::string_view id) {
    std::string link = "#";
    link += id;
    html.Attribute("href", link);
}

std::string WritePage(std::span<const Report> reports, std::span<const Verdict> verdicts,
                      const PageOptions& options, const Sink& sink) {
    const PageContent page(reports, verdicts, options);
    Html html(sink);
    html.Built(PageBegin()) << "<title>";
    html.Text(Title(page)) << "</title>\n</head>\n<body>\n"
                              "<a class=\"skip\" href=\"#sections\">Skip to the sections</a>\n";
    WriteOverview(html, page);
    WriteTimeline(html, page);
    WriteSensors(html, page);
    const std::string fault = WriteSections(html, page);
    if (options.bundle) WriteBundle(html, options);
    html << "</section>\n</main>\n";
    html.Built(PageEnd());
    html.Flush();
    return fault;
}

}  // namespace reader
