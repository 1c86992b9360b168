// What the sensors recorded, packed for the plots.

#include <cmath>

#include "page_parts.h"
#include "record_packer.h"
#include "sensor_kinds.h"
#include "units.h"

namespace reader {
namespace {

struct Action {
    Markup name;
    Markup label;
    Markup hint;
};
constexpr Action kActions[] = {
        {"in", "+", "Zoom in (+)"},      {"out", "−", "Zoom out (−)"},
        {"left", "←", "Earlier (←)"},    {"right", "→", "Later (→)"},
        {"reset", "Reset", "Reset (0)"}, {"all", "All", "Everything that was recorded (a)"},
};

Markup ShapeOf(const SensorKind& kind) {
    switch (kind.shape) {
        case SensorKind::Shape::kVector:
            return "vector";
        case SensorKind::Shape::kScalar:
            return "scalar";
        case SensorKind::Shape::kEvent:
            return "event";
        case SensorKind::Shape::kWear:
            break;
    }
    return "wear";
}

// How far apart two records have to be for a gap between them, in nanoseconds.
std::string GapOf(const SensorKind& kind, const SensorStatistics& statistics) {
    if (!kind.steady() || statistics.median_step <= 0) return "Infinity";
    return Fixed(SensorStatistics::kGapSteps * 1e9 * statistics.median_step, 0);
}

std::string Describe(const Sensor& sensor, const SensorKind& kind,
                     const SensorStatistics& statistics) {
    if (!sensor.skipped.empty()) return "";
    const size_t count = statistics.records;
    if (kind.shape == SensorKind::Shape::kWear) {
        return Grouped(count) + (count == 1 ? " period" : " periods") + ", " +
               Duration(sensor.total_worn.value_or(0)) + " worn";
    }
    std::string text = Grouped(count) + (count == 1 ? " record" : " records");
    if (statistics.span <= 0) return text;
    text += " in " + Duration(statistics.span);
    if (kind.shape != SensorKind::Shape::kEvent && std::isfinite(statistics.rate)) {
        text += ", " + Fixed(statistics.rate, statistics.rate < 10 ? 2 : 1) + " a second";
    }
    return text;
}

void WriteAbout(Html& html, const PageContent& page, size_t report, Finding::SensorPlace place) {
    const Sensor& sensor = page.SensorOf(report, place);
    const SensorKind kind = KindOf(sensor);
    html << "<p class=\"note\">";
    WriteChip(html, page, report);
    html.Text(Describe(sensor, kind, sensor.statistics));
    // That periods are in seconds goes without saying.
    if (kind.unit[0] != '\0' && kind.shape != SensorKind::Shape::kWear && !sensor.times.empty())
        html.Text(std::string(", in ") + kind.unit);
    const std::string words = page.verdicts[report].WordsOf(place);
    if (!words.empty()) {
        html << " <strong class=\"trouble\">";
        html.Text(words) << "</strong>";
    }
    html << "</p>\n";
}

void WriteRecords(Html& html, size_t report, const Sensor& sensor) {
    const PackedRecords packed = PackRecords(sensor);
    html << "<script type=\"application/octet-stream\" data-report=\"" << report
         << "\" data-records=\"" << sensor.times.size() << "\" data-columns=\""
         << sensor.values.size() << "\" data-first=\"" << packed.first << "\" data-unit=\""
         << packed.unit << "\" data-times=\""
         << (packed.plain_times ? Markup("plain") : Markup("delta")) << "\"";
    html.Attribute("data-gap", GapOf(KindOf(sensor), sensor.statistics)) << ">";
    html.Base64(packed.bytes) << "</script>\n";
}

void WriteFigure(Html& html, const PageContent& page, const Comparison::SensorLine& line) {
    const Sensor* any = nullptr;  // the first that there is
    for (size_t i = 0; i < line.sensors.size() && any == nullptr; ++i) {
        if (line.sensors[i]) any = &page.SensorOf(i, *line.sensors[i]);
    }
    html << "<figure";
    html.Attribute("id", SensorId(line))
            << " data-sensor=\"" << line.number << "\" data-records=\"" << any->times.size()
            << "\" data-shape=\"" << ShapeOf(KindOf(*any)) << "\">\n<figcaption><h3>";
    html.Text(line.name) << " <span class=\"quiet\">" << line.number << "</span></h3>\n";
    for (size_t i = 0; i < line.sensors.size(); ++i) {
        if (line.sensors[i]) WriteAbout(html, page, i, *line.sensors[i]);
    }
    html << "<p class=\"readout\"></p></figcaption>\n<div class=\"plots\"></div>\n";
    for (size_t i = 0; i < line.sensors.size(); ++i) {
        if (!line.sensors[i]) continue;
        const Sensor& sensor = page.SensorOf(i, *line.sensors[i]);
        if (!sensor.times.empty()) WriteRecords(html, i, sensor);
    }
    html << "</figure>\n";
}

// "" when all is well with every report's block.
std::string Trouble(const PageContent& page) {
    std::string trouble;
    for (size_t i = 0; i < page.reports.size(); ++i) {
        const std::string& one = page.verdicts[i].black_box;
        if (one.empty()) continue;
        if (!trouble.empty()) trouble += "; ";
        if (page.compared()) trouble += ReportName(i) + ": ";
        trouble += one;
    }
    return trouble;
}

}  // namespace

void WriteSensors(Html& html, const PageContent& page) {
    const std::string trouble = Trouble(page);
    html << "<section id=\"sensors\" data-black-box";
    if (!trouble.empty()) html.Attribute("data-failed", trouble);
    html << ">\n<h2>Sensors</h2>\n";
    if (!trouble.empty()) {
        html << "<p class=\"trouble\"><strong>";
        html.Text("Sensor Black Box: " + trouble)
                << "</strong></p>\n<p class=\"note\">The device's system log says why, in lines "
                   "with the tag tev-dumpstate.</p>\n";
    }
    if (!page.comparison.sensors.empty()) {
        html << "<div class=\"tools\" role=\"group\" aria-label=\"Time axis\">";
        for (const Action& action : kActions) {
            html << "<button type=\"button\" data-action=\"" << action.name << "\" title=\""
                 << action.hint << "\" aria-label=\"" << action.hint << "\">" << action.label
                 << "</button>";
        }
        html << "<span class=\"note\">drag to zoom, shift and drag to move; the point under the "
                "cursor is told above each plot (keys , and .)</span></div>\n";
    }
    html << "<div id=\"plots\" tabindex=\"0\" role=\"group\" aria-label=\"Plots; plus, minus, "
            "arrow "
            "keys and 0 change what is seen\" data-reports=\""
         << page.reports.size() << "\"";
    if (const auto boot = page.reports.front().BootSeconds(); boot && !page.compared()) {
        html << " data-boot=\"" << *boot << "\"";
    }
    html << ">\n";
    for (const Comparison::SensorLine& line : page.comparison.sensors)
        WriteFigure(html, page, line);
    html << "</div>\n</section>\n";
}

}  // namespace reader
