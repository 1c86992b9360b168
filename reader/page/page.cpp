#include "page.h"

#include "page_built.h"
#include "page_html.h"
#include "page_parts.h"
#include "units.h"

namespace reader {
namespace {

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

PageContent::PageContent(std::span<const Report> all, const PageOptions& chosen)
    : reports(all), options(chosen), comparison(Compare(all, true)) {
    for (size_t line = 0; line < comparison.sections.size(); ++line) {
        for (const Section* const section : comparison.sections[line].sections) {
            if (section != nullptr) lines.emplace(section, line);
        }
    }
    for (const Comparison::SensorLine& line : comparison.sensors) {
        for (size_t i = 0; i < reports.size(); ++i) {
            const Sensor* const sensor = line.sensors[i];
            if (sensor != nullptr) {
                statistics.emplace(sensor, Measure(*reports[i].black_box, *sensor));
            }
        }
    }
}

std::string ReportName(size_t report) {
    return std::string(1, static_cast<char>('A' + report % 26));
}

void WriteChip(Html& html, const PageContent& page, size_t report) {
    if (!page.compared()) return;
    html << " <b class=\"chip chip-" << report % 5 + 1 << "\">";
    html.Text(ReportName(report)) << "</b> ";
}

std::string SectionId(size_t line) {
    return "section-" + std::to_string(line);
}

void WriteLink(Html& html, std::string_view id) {
    std::string link = "#";
    link += id;
    html.Attribute("href", link);
}

std::string WritePage(std::span<const Report> reports, const PageOptions& options,
                      const Sink& sink) {
    const PageContent page(reports, options);
    Html html(sink);
    html.Built(PageBegin()) << "<title>";
    html.Text(Title(page)) << "</title>\n</head>\n<body>\n"
                              "<a class=\"skip\" href=\"#sections\">Skip to the sections</a>\n";
    WriteOverview(html, page);
    WriteTimeline(html, page);
    WriteSensors(html, page);
    const std::string fault = WriteSections(html, page);
    if (options.bundle) WriteBundle(html, *options.bundle);
    html << "</main>\n";
    html.Built(PageEnd());
    html.Flush();
    return fault;
}

}  // namespace reader
