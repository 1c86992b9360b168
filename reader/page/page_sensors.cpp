// What the sensors recorded, packed for the plots.

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

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
        {"in", "+", "Zoom in (+)"},
        {"out", "−", "Zoom out (−)"},
        {"left", "←", "Earlier (←)"},
        {"right", "→", "Later (→)"},
        {"reset", "Reset", "Reset (0)"},
        {"all", "All", "All that was recorded (a)"},
        {"logs", "Logs", "Logs around this time (l)"},
        {"save", "CSV", "CSV of what is shown (s)"},
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
        return Counted(count, "period") + ", " + Duration(sensor.total_worn.value_or(0)) + " worn";
    }
    std::string text = Counted(count, "record");
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

// When its values stood still: "froze 123-456 y-stuck 345-456", in nanoseconds since boot.
std::string StillTimes(const SensorStatistics& statistics) {
    std::string text;
    const auto add = [&text](const std::string& what, uint64_t begin, uint64_t end) {
        text.append(text.empty() ? "" : " ").append(what).append(" ").append(std::to_string(begin));
        text.append("-").append(std::to_string(end));
    };
    if (statistics.frozen) add("froze", statistics.frozen->begin, statistics.frozen->end);
    for (unsigned column = 0; column < 3; ++column) {
        if ((statistics.stuck_columns >> column & 1) == 0) continue;
        const std::string axis(1, static_cast<char>('x' + column));
        add(axis + "-stuck", statistics.stuck_since, statistics.newest);
    }
    return text;
}

struct Column {
    double least = std::numeric_limits<double>::infinity();
    double greatest = -std::numeric_limits<double>::infinity();
    double mean = std::numeric_limits<double>::quiet_NaN();

    explicit Column(const std::vector<double>& values) {
        double sum = 0;
        size_t count = 0;
        for (const double value : values) {
            if (!std::isfinite(value)) continue;
            least = std::min(least, value);
            greatest = std::max(greatest, value);
            sum += value;
            ++count;
        }
        if (count > 0) mean = sum / static_cast<double>(count);
    }
};

// What can be told without drawing: how many, from when to when, and between what values.
void WriteNumbers(Html& html, const PageContent& page, const Comparison::SensorLine& line) {
    html << "<details open class=\"numbers\"><summary>Numbers</summary><div class=\"wide\" "
            "tabindex=\"0\" role=\"region\"";
    html.Attribute("aria-label", "Numbers of " + line.name) << "><table>\n<thead><tr>";
    if (page.compared()) html << "<th scope=\"col\">Report</th>";
    for (const Markup title : {Markup("Records"), Markup("From"), Markup("To"), Markup("Least"),
                               Markup("Mean"), Markup("Greatest")}) {
        html << "<th scope=\"col\">" << title << "</th>";
    }
    html << "</tr></thead>\n<tbody>\n";
    for (size_t i = 0; i < line.sensors.size(); ++i) {
        if (!line.sensors[i]) continue;
        const Sensor& sensor = page.SensorOf(i, *line.sensors[i]);
        if (sensor.times.empty()) continue;
        const std::vector<Column> columns(sensor.values.begin(), sensor.values.end());
        const auto told = [&columns](double Column::*which) {
            std::string text;
            for (const Column& column : columns) {
                text += text.empty() ? "" : ", ";
                text += std::isfinite(column.*which) ? Fixed(column.*which, 3) : "–";
            }
            return text;
        };
        const auto [first, last] = std::ranges::minmax(sensor.times);
        html << "<tr>";
        if (page.compared()) {
            html << "<th scope=\"row\">";
            WriteChip(html, page, i);
            html << "</th>";
        }
        for (const std::string& cell :
             {Grouped(sensor.times.size()), Moment(page.reports[i], first),
              Moment(page.reports[i], last), told(&Column::least), told(&Column::mean),
              told(&Column::greatest)}) {
            (html << "<td>").Text(cell) << "</td>";
        }
        html << "</tr>\n";
    }
    html << "</tbody></table></div></details>\n";
}

void WriteRecords(Html& html, size_t report, const Sensor& sensor) {
    const PackedRecords packed = PackRecords(sensor);
    html << "<script type=\"application/octet-stream\" data-report=\"" << report
         << "\" data-records=\"" << sensor.times.size() << "\" data-columns=\""
         << sensor.values.size() << "\" data-first=\"" << packed.first << "\" data-unit=\""
         << packed.unit << "\" data-times=\""
         << (packed.plain_times ? Markup("plain") : Markup("delta")) << "\"";
    html.Attribute("data-gap", GapOf(KindOf(sensor), sensor.statistics));
    if (const std::string still = StillTimes(sensor.statistics); !still.empty()) {
        html.Attribute("data-still", still);
    }
    if (sensor.statistics.silent > 0) html << " data-silent";
    html << ">";
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
    if (!any->times.empty()) WriteNumbers(html, page, line);
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
        html.Text("Sensor Black Box: " + trouble) << "</strong></p>\n<p class=\"note\">";
        html.Text(SensorHint(page.reports.front().tally)) << "</p>\n";
    }
    if (!page.comparison.sensors.empty()) {
        html << "<div class=\"tools\" role=\"group\" aria-label=\"Time axis\" hidden>";
        for (const Action& action : kActions) {
            html << "<button type=\"button\" data-action=\"" << action.name << "\" title=\""
                 << action.hint << "\" aria-label=\"" << action.hint << "\">" << action.label
                 << "</button>";
        }
        html << "<p id=\"pointed\" role=\"status\"></p></div>\n<p id=\"legend\" "
                "class=\"note\"></p>\n";
    }
    html << "<div id=\"plots\" tabindex=\"0\" role=\"group\" aria-label=\"Plots; plus, minus, "
            "arrow keys and 0 change what is seen, comma and full stop go from record to record, l "
            "opens the logs around\" data-reports=\""
         << page.reports.size() << "\">\n";
    for (const Comparison::SensorLine& line : page.comparison.sensors)
        WriteFigure(html, page, line);
    html << "</div>\n<div id=\"around\" role=\"region\" aria-label=\"Logs around the mark\" "
            "tabindex=\"0\" hidden></div>\n</section>\n";
}

}  // namespace reader
