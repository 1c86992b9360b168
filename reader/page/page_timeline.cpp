// Which section took how long: a strip a report, all to one scale, and the slowest in words.

#include <algorithm>
#include <cmath>
#include <functional>

#include "page_parts.h"
#include "units.h"

namespace reader {
namespace {

constexpr size_t kSlowest = 5;
// A browser takes long to draw more, and nobody tells them from one another.
constexpr size_t kMostBars = 2000;

double SecondsInSections(const Report& report) {
    double seconds = 0;
    for (const Section& section : report.sections) seconds += section.seconds;
    return seconds;
}

// What no footer accounts for: the black box, pauses, the way there and back.
double SecondsBesides(const PageContent& page, size_t report) {
    if (report != 0 || !page.options.total_seconds) return 0;
    return std::max(0.0, *page.options.total_seconds - SecondsInSections(page.reports[report]));
}

// What passed between the black box and the times, told from the file alone.
double UnaccountedIn(const PageContent& page, size_t report) {
    return page.verdicts[report].unaccounted;
}

double SecondsShown(const PageContent& page, size_t report) {
    return SecondsInSections(page.reports[report]) +
           std::max(SecondsBesides(page, report), UnaccountedIn(page, report));
}

struct Bar {
    std::string target;
    std::string title;
    double begin;
    double seconds;
    std::string_view trouble;
    Markup kind;
};

void WriteBar(Html& html, const Bar& bar, double scale) {
    std::string told = bar.title + ": " + Fixed(bar.seconds, 3) + " s";
    if (!bar.trouble.empty()) (told += ", ") += bar.trouble;
    html << "<a data-bar";
    WriteLink(html, bar.target);
    html.Attribute("aria-label", told);
    html << "><rect class=\"" << bar.kind << "\" y=\"4\" height=\"32\"";
    html.Attribute("x", Fixed(100 * bar.begin / scale, 4) + "%");
    html.Attribute("width", Fixed(100 * bar.seconds / scale, 4) + "%") << "><title>";
    html.Text(told) << "</title></rect>";
    if (!bar.trouble.empty()) {
        // However thin the bar, what failed is seen.
        html << "<circle class=\"bad\" cy=\"42\" r=\"3\"";
        html.Attribute("cx", Fixed(100 * (bar.begin + bar.seconds / 2) / scale, 4) + "%");
        html << "/>";
    }
    html << "</a>";
}

// One or, where there are too many, so many neighbours that their bar can be seen.
struct Bars {
    Bar bar;
    size_t sections = 0;
    size_t failed = 0;
    std::string trouble;

    void Add(const PageContent& page, const Section& section, double at) {
        const std::string_view why =
                section.expected.empty() ? section.Trouble() : std::string_view();
        if (sections++ == 0) {
            bar = {SectionId(page.LineOf(section)), section.title, at, 0, "", "bar"};
        }
        bar.seconds += section.seconds;
        if (!why.empty() && failed++ == 0) trouble = why;
    }
    void Write(Html& html, double scale) {
        if (sections > 1) {
            bar.title += " and " + Grouped(sections - 1) + " more";
            if (failed > 0) trouble = Grouped(failed) + " failed";
        }
        bar.trouble = trouble;
        if (failed > 0) bar.kind = "bar bad";
        WriteBar(html, bar, scale);
        sections = failed = 0;
        trouble.clear();
    }
};

void WriteStrip(Html& html, const PageContent& page, size_t report, double scale) {
    html << "<div class=\"strip\" role=\"group\"";
    html.Attribute("aria-label", "Sections of " + BaseName(page.reports[report].file) +
                                         " in their order; the arrow keys go from one to the next");
    html << ">";
    WriteChip(html, page, report);
    html << "<svg width=\"100%\" height=\"48\">";
    const std::vector<Section>& sections = page.reports[report].sections;
    const double thinnest =
            sections.size() > kMostBars ? scale / static_cast<double>(kMostBars) : 0;
    double at = 0;
    double besides = SecondsBesides(page, report);
    const double unaccounted = UnaccountedIn(page, report);
    Bars bars{{"", "", 0, 0, "", "bar"}, 0, 0, ""};
    for (const Section& section : sections) {
        if (unaccounted > 0 && section.title == kTimesSection) {
            // Where it passed, as far as the report tells.
            if (bars.sections > 0) bars.Write(html, scale);
            WriteBar(html, {"verdict", "In no section", at, unaccounted, "", "bar besides"}, scale);
            at += unaccounted;
            besides = std::max(0.0, besides - unaccounted);
        }
        bars.Add(page, section, at);
        at += section.seconds;
        if (bars.bar.seconds >= thinnest) bars.Write(html, scale);
    }
    if (bars.sections > 0) bars.Write(html, scale);
    if (besides > 0) {
        WriteBar(html,
                 {"sensors", "In no section (black box, pauses)", at, besides, "", "bar besides"},
                 scale);
    }
    html << "</svg></div>\n";
}

// One, two or five of a power of ten, so that there are at most ten to the scale.
double StepOf(double scale) {
    double step = std::pow(10, std::floor(std::log10(scale)) - 1);
    for (const double factor : {2.0, 2.5, 2.0, 2.0}) {
        if (scale / step <= 10) break;
        step *= factor;
    }
    return step;
}

// Beneath each strip, as each is looked at by itself.
void WriteAxis(Html& html, const PageContent& page, size_t report, double scale) {
    const double step = StepOf(scale);
    const int digits = std::max(0, -static_cast<int>(std::floor(std::log10(step) + 1e-9)));
    html << "<div class=\"strip-axis\" aria-hidden=\"true\">";
    WriteChip(html, page, report);  // not seen, but as wide as that of the strip
    html << "<svg width=\"100%\" height=\"22\">";
    for (int i = 0; i * step <= scale * 1.0001; ++i) {
        const std::string x = Fixed(100 * i * step / scale, 3) + "%";
        html << "<line y1=\"0\" y2=\"5\"";
        html.Attribute("x1", x).Attribute("x2", x) << "/>";
        // A phone has room for every second one.
        html << "<text y=\"18\"" << (i % 2 == 1 ? Markup(" class=\"odd\"") : Markup(""));
        html.Attribute("text-anchor", i == 0                    ? "start"
                                      : i * step > scale * 0.97 ? "end"
                                                                : "middle");
        html.Attribute("x", x) << ">";
        html.Text(Fixed(i * step, digits) + (i == 0 ? " s" : "")) << "</text>";
    }
    html << "</svg></div>\n";
}

void WriteRow(Html& html, const PageContent& page, const Comparison::SectionLine& line,
              size_t index, double slowest) {
    html << "<tr><th scope=\"row\"><a";
    WriteLink(html, SectionId(index));
    html << ">";
    html.Text(line.title) << "</a></th>";
    for (const Section* const section : line.sections) {
        html << "<td class=\"number\">";
        if (section != nullptr) html.Fixed(section->seconds, 3) << " s";
        html << "</td>";
    }
    if (!page.compared()) {
        html << "<td class=\"meter\"><svg width=\"100%\" height=\"10\"><rect class=\"bar\" "
                "height=\"10\"";
        html.Attribute("width", Fixed(100 * line.sections.front()->seconds / slowest, 2) + "%");
        html << "/></svg></td>";
    }
    html << "</tr>\n";
}

// The slowest of the only report, or those whose times differ.
void WriteRemarkable(Html& html, const PageContent& page) {
    std::vector<size_t> chosen;
    const auto& lines = page.comparison.sections;
    for (size_t i = 0; i < lines.size(); ++i) {
        if (page.compared() ? lines[i].time_differs : lines[i].sections.front()->seconds > 0) {
            chosen.push_back(i);
        }
    }
    if (!page.compared()) {
        std::ranges::stable_sort(chosen, std::greater(),
                                 [&](size_t i) { return lines[i].sections.front()->seconds; });
        chosen.resize(std::min(chosen.size(), kSlowest));
    }
    if (chosen.empty()) return;
    html << "<h3>" << (page.compared() ? Markup("Times that differ") : Markup("Slowest"))
         << "</h3>\n<div class=\"wide\" tabindex=\"0\" role=\"region\" aria-label=\"Times of "
            "sections\"><table class=\"times\">\n";
    if (page.compared()) {
        html << "<thead><tr><th scope=\"col\">Section</th>";
        for (size_t i = 0; i < page.reports.size(); ++i) {
            html << "<th scope=\"col\">";
            WriteChip(html, page, i);
            html << "</th>";
        }
        html << "</tr></thead>\n";
    }
    html << "<tbody>\n";
    for (const size_t i : chosen) {
        const Section* const first = lines[chosen.front()].sections.front();
        WriteRow(html, page, lines[i], i, first == nullptr ? 0 : first->seconds);
    }
    html << "</tbody></table></div>\n";
}

}  // namespace

void WriteTimeline(Html& html, const PageContent& page) {
    double scale = 0;
    for (size_t i = 0; i < page.reports.size(); ++i) {
        scale = std::max(scale, SecondsShown(page, i));
    }
    html << "<section id=\"timeline\">\n<h2>Timeline</h2>\n";
    for (size_t i = 0; i < page.reports.size() && scale > 0; ++i) {
        WriteStrip(html, page, i, scale);
        WriteAxis(html, page, i, scale);
    }
    if (scale > 0) {
        html << "<p class=\"note keys\"><span class=\"key-bar\">a section</span><span "
                "class=\"key-bar "
                "bad\">failed, with a dot beneath</span><span class=\"key-bar besides\">in no "
                "section</span><span>seconds since the first section began</span></p>\n";
    }
    html << "<p id=\"bar-told\" class=\"note\" aria-live=\"polite\">";
    html.Text(page.options.total_seconds ? Fixed(*page.options.total_seconds, 1) + " s in all, "
                                         : "");
    html.Text(Fixed(SecondsInSections(page.reports.front()), 3) +
              " s in sections; point at a bar, tap it, or go from bar to bar with the arrow keys");
    html << "</p>\n";
    WriteRemarkable(html, page);
    html << "</section>\n";
}

}  // namespace reader
