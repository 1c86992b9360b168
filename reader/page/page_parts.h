#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "comparison.h"
#include "page.h"
#include "page_html.h"
#include "verdict.h"

namespace reader {

// What the parts of a page are written from.
struct PageContent {
    PageContent(std::span<const Report> all, std::span<const Verdict> found,
                const PageOptions& chosen);

    bool compared() const { return reports.size() > 1; }
    // Where the section stands in comparison.sections.
    size_t LineOf(const Section& section) const { return lines.at(&section); }
    const Sensor& SensorOf(size_t report, Finding::SensorPlace place) const {
        return reports[report].black_boxes[place.black_box].sensors[place.sensor];
    }
    // Seconds from the boot, to one or two, until the section of a single report began.
    std::optional<double> BeginOf(const Section& section) const;
    // The id of what the finding is about: its very line, where that is shown.
    std::string TargetOf(size_t report, const Finding& finding) const;
    // The lines of a single report's section that findings rest on, and the gravest of each.
    const std::map<uint64_t, Severity>* MarkedLines(const Section& section) const;

    std::span<const Report> reports;
    std::span<const Verdict> verdicts;  // a report each
    const PageOptions& options;
    static constexpr uint64_t kLargestText = uint64_t{4} << 20;  // larger ones are not shown whole
    Comparison comparison;

  private:
    void PlaceSections();

    std::unordered_map<size_t, std::map<uint64_t, Severity>> marked;  // by the section's index
    std::unordered_map<const Section*, size_t> lines;
    std::vector<double> begins;  // by the section's index; empty when they aren't known
    std::unordered_map<const Sensor*, size_t> figures;
};

// "[0]" for the first report: what it is called where several are shown, here and in a summary.
std::string ReportName(size_t report);
// The file's name without the folders, which tell about whoever made the page; never "-".
std::string BaseName(const std::string& file);
// ` <b class="chip chip-1">[0]</b> `, when there are several.
void WriteChip(Html& html, const PageContent& page, size_t report);
// The ids that a line of comparison.sections has, and one of comparison.sensors.
std::string SectionId(size_t line);
std::string SensorId(const Comparison::SensorLine& line);
std::string LineId(size_t section, uint64_t line);
// The class of what a finding of that severity rests on.
Markup ClassOf(Severity severity);
// ` href="#ID"`
void WriteLink(Html& html, std::string_view id);

// The parts, in the page's order.
void WriteOverview(Html& html, const PageContent& page);  // what it is, what is wrong, the facts
void WriteTimeline(Html& html, const PageContent& page);
void WriteSensors(Html& html, const PageContent& page);
// Begins what is searched, which the bundle belongs to; returns "" or what can't be read.
std::string WriteSections(Html& html, const PageContent& page);
void WriteBundle(Html& html, const PageOptions& options);

}  // namespace reader
