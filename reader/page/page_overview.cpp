// What a page begins with: which device and when, what failed, the facts.

#include <algorithm>
#include <array>
#include <utility>

#include "page_parts.h"
#include "units.h"

namespace reader {
namespace {

// Something that is wrong, in one report or several.
struct Finding {
    std::string target;  // the id of what it is about
    std::string what;
    std::vector<std::string> reasons;  // a report each, "" where it is not
    bool failure = true;               // else it is only worth a look
};

void AddSections(const PageContent& page, std::vector<Finding>& findings) {
    for (size_t line = 0; line < page.comparison.sections.size(); ++line) {
        const Comparison::SectionLine& sections = page.comparison.sections[line];
        Finding finding{SectionId(line), sections.title, {}};
        bool any = false;
        for (const Section* const section : sections.sections) {
            finding.reasons.emplace_back(section == nullptr ? "" : section->Trouble());
            any = any || !finding.reasons.back().empty();
        }
        if (any) findings.push_back(std::move(finding));
    }
}

template <typename Reason>
void AddIfAny(const PageContent& page, std::vector<Finding>& findings, Finding finding,
              Reason reason) {
    for (size_t i = 0; i < page.reports.size(); ++i) finding.reasons.push_back(reason(i));
    const bool any = std::ranges::any_of(finding.reasons,
                                         [](const std::string& text) { return !text.empty(); });
    if (any) findings.push_back(std::move(finding));
}

std::vector<Finding> FindFindings(const PageContent& page) {
    std::vector<Finding> findings;
    AddSections(page, findings);
    AddIfAny(page, findings, {"sensors", "Sensor Black Box", {}},
             [&](size_t i) { return page.reports[i].BlackBoxTrouble(); });
    AddIfAny(page, findings, {"sections", "The report itself", {}}, [&](size_t i) {
        return std::string(page.reports[i].complete() ? "" : "not complete: it was cut off");
    });
    for (const Comparison::SensorLine& line : page.comparison.sensors) {
        AddIfAny(page, findings, {"sensor-" + std::to_string(line.number), line.name, {}, false},
                 [&](size_t i) -> std::string {
                     const Sensor* const sensor = line.sensors[i];
                     if (sensor == nullptr || !sensor->skipped.empty()) return "";
                     return SensorTrouble(*sensor, page.StatisticsOf(*sensor),
                                          page.reports[i].BootSeconds());
                 });
    }
    return findings;
}

void WriteFinding(Html& html, const Finding& finding) {
    html << (finding.failure ? Markup("<tr class=\"failure\">") : Markup("<tr>"));
    html << "<th scope=\"row\"><a";
    WriteLink(html, finding.target);
    html << ">";
    html.Text(finding.what) << "</a></th>";
    const std::string& first = finding.reasons.front();
    const auto count = static_cast<size_t>(std::ranges::count(finding.reasons, first));
    if (count > 1 && count == finding.reasons.size()) {
        html << "<td colspan=\"" << count << "\">";
        html.Text(first + " (in all)") << "</td></tr>\n";
        return;
    }
    for (const std::string& reason : finding.reasons) {
        html << (reason.empty() ? Markup("<td class=\"fine\">") : Markup("<td>"));
        html.Text(reason.empty() ? "–" : reason) << "</td>";
    }
    html << "</tr>\n";
}

void WriteReportHeads(Html& html, const PageContent& page, Markup first) {
    html << "<thead><tr><th scope=\"col\">" << first << "</th>";
    for (size_t i = 0; i < page.reports.size(); ++i) {
        html << "<th scope=\"col\">";
        WriteChip(html, page, i);
        html.Text(page.reports[i].file) << "</th>";
    }
    html << "</tr></thead>\n";
}

std::string Sentence(const PageContent& page, size_t failures) {
    size_t sections = 0;
    for (const auto& line : page.comparison.sections) {
        sections += line.sections.front() != nullptr ? 1 : 0;
    }
    if (page.compared()) {
        return failures == 0 ? "Nothing failed in any of them"
                             : Grouped(failures) + (failures == 1 ? " failure" : " failures") +
                                       " in one of them or more";
    }
    if (failures == 0) return "Nothing failed in " + Grouped(sections) + " sections";
    return Grouped(failures) + (failures == 1 ? " failure" : " failures") + ", " +
           Grouped(sections) + " sections";
}

// How much there is to see of what differs.
void WriteDifferences(Html& html, const PageContent& page) {
    const auto count = [](const auto& lines, auto differs) {
        return Grouped(static_cast<size_t>(std::ranges::count_if(lines, differs)));
    };
    using SectionLine = Comparison::SectionLine;
    const auto& [facts, sections, sensors, black_box_differs] = page.comparison;
    html << "<p class=\"note\">";
    html.Text("What differs: " + count(facts, &Comparison::FactLine::differs) + " facts, " +
              count(sections, &SectionLine::text_differs) + " sections, " +
              count(sections, &SectionLine::time_differs) + " times; " +
              count(sections, &SectionLine::missing_in_some) + " sections are only in some.");
    html << "</p>\n";
}

void WriteVerdict(Html& html, const PageContent& page) {
    const std::vector<Finding> findings = FindFindings(page);
    const auto failures =
            static_cast<size_t>(std::ranges::count(findings, true, &Finding::failure));
    html << (failures > 0 ? Markup("<section id=\"verdict\" class=\"bad\">")
                          : Markup("<section id=\"verdict\" class=\"good\">"));
    html << "\n<h2>";
    html.Text(Sentence(page, failures)) << "</h2>\n";
    if (!findings.empty()) {
        html << "<div class=\"wide\"><table class=\"findings\">\n";
        if (page.compared()) WriteReportHeads(html, page, "What");
        html << "<tbody>\n";
        for (const Finding& finding : findings) WriteFinding(html, finding);
        html << "</tbody></table></div>\n";
    }
    if (page.compared()) WriteDifferences(html, page);
    html << "</section>\n";
}

// Under which heading a fact stands, by how its key begins; the last takes the rest.
struct Group {
    const char* key;
    Markup title;
};
constexpr std::array kGroups = {
        Group{"battery.", "Battery"}, Group{"charging.", "Battery"}, Group{"modem.", "Modem"},
        Group{"worn", "Report"},      Group{"sections", "Report"},   Group{"failed", "Report"},
        Group{"slowest", "Report"},   Group{"", "Device"},
};

Markup GroupOf(std::string_view key) {
    return std::ranges::find_if(kGroups, [key](const Group& g) { return key.starts_with(g.key); })
            ->title;
}

void WriteFact(Html& html, const PageContent& page, size_t report, const Fact& fact) {
    html.Attribute("data-fact", fact.row->key);
    if (page.compared()) html << " data-report=\"" << report << "\"";
    // The unit is no part of the value: a style puts it there.
    if (fact.row->unit[0] != '\0') html.Attribute("data-unit", fact.row->unit);
    html << ">";
    html.Text(fact.value);
}

void WriteFactList(Html& html, const PageContent& page) {
    html << "<div class=\"facts\">\n";
    for (const Markup title :
         {Markup("Device"), Markup("Battery"), Markup("Modem"), Markup("Report")}) {
        const auto here = [title](const Comparison::FactLine& line) {
            return GroupOf(line.row->key).text() == title.text();
        };
        if (std::ranges::none_of(page.comparison.facts, here)) continue;
        html << "<div><h3>" << title << "</h3><dl>\n";
        for (const Comparison::FactLine& line : page.comparison.facts) {
            if (!here(line)) continue;
            html << "<dt>";
            html.Text(line.row->label) << "</dt><dd";
            WriteFact(html, page, 0, *line.facts.front());
            html << "</dd>\n";
        }
        html << "</dl></div>\n";
    }
    html << "</div>\n";
}

void WriteFactTable(Html& html, const PageContent& page) {
    html << "<div class=\"wide\"><table class=\"compared\">\n";
    WriteReportHeads(html, page, "Fact");
    html << "<tbody>\n";
    for (const Comparison::FactLine& line : page.comparison.facts) {
        html << (line.differs ? Markup("<tr class=\"differs\">") : Markup("<tr>"));
        html << "<th scope=\"row\">";
        html.Text(line.row->label) << "</th>";
        for (size_t i = 0; i < line.facts.size(); ++i) {
            html << "<td";
            if (line.facts[i] != nullptr) {
                WriteFact(html, page, i, *line.facts[i]);
            } else {
                html << " class=\"absent\">–";
            }
            html << "</td>";
        }
        html << "</tr>\n";
    }
    html << "</tbody></table></div>\n";
}

constexpr Markup kRedacted = " <span data-redacted>redacted: identifiers are stand-ins</span>";

void WriteMasthead(Html& html, const PageContent& page) {
    const Report& report = page.reports.front();
    const auto fact = [&](const char* key) {
        const Fact* const found = report.FindFact(key);
        return found == nullptr ? std::string() : found->value;
    };
    html << "<header>\n<p class=\"kind\">";
    html.Text(page.compared() ? Grouped(page.reports.size()) + " board reports" : "Board report");
    html << "</p>\n<h1>";
    const std::string device = fact("device");
    html.Text(device.empty() ? report.file : device) << "</h1>\n<p class=\"about\">";
    if (!page.compared()) {
        for (const char* const key : {"report.time", "build"}) {
            if (!fact(key).empty()) (html << "<span>").Text(fact(key)) << "</span> ";
        }
        (html << "<span>").Text(report.file + ", " + HumanSize(report.size)) << "</span> ";
        html << "<span>verbose logging " << (report.verbose ? Markup("on") : Markup("off"))
             << "</span>";
        if (report.redacted()) html << kRedacted;
    } else {
        for (size_t i = 0; i < page.reports.size(); ++i) {
            html << "<span>";
            WriteChip(html, page, i);
            html.Text(page.reports[i].file + ", " + HumanSize(page.reports[i].size)) << "</span> ";
            if (page.reports[i].redacted()) html << kRedacted;
        }
    }
    html << "</p>\n<nav aria-label=\"Page\"><a href=\"#facts\">Facts</a> <a href=\"#timeline\">"
            "Timeline</a> <a href=\"#sensors\">Sensors</a> <a href=\"#sections\">Sections</a>";
    if (page.options.bundle) html << " <a href=\"#bundle\">Bundle</a>";
    html << "</nav>\n</header>\n";
}

}  // namespace

void WriteOverview(Html& html, const PageContent& page) {
    WriteMasthead(html, page);
    html << "<main>\n";
    WriteVerdict(html, page);
    html << "<section id=\"facts\">\n<h2>Facts</h2>\n";
    if (page.compared()) {
        WriteFactTable(html, page);
    } else {
        WriteFactList(html, page);
    }
    html << "</section>\n";
}

}  // namespace reader
