// What a page begins with: which device and when, what is wrong, the facts.

#include <algorithm>
#include <array>
#include <string_view>

#include "page_parts.h"
#include "units.h"

namespace reader {
namespace {

void WriteReportHeads(Html& html, const PageContent& page, Markup first) {
    html << "<thead><tr><th scope=\"col\">" << first << "</th>";
    for (size_t i = 0; i < page.reports.size(); ++i) {
        html << "<th scope=\"col\">";
        WriteChip(html, page, i);
        html.Text(page.reports[i].file) << "</th>";
    }
    html << "</tr></thead>\n";
}

std::string Sentence(const PageContent& page) {
    if (page.compared()) {
        const size_t count = page.comparison.findings.size();
        return count == 0 ? "Nothing is wrong in any of them"
                          : Grouped(count) + (count == 1 ? " finding" : " findings") +
                                    " in one of them or more";
    }
    const Tally& tally = page.reports.front().tally;
    const Verdict& verdict = page.verdicts.front();
    std::string counts = verdict.Counts();
    if (verdict.findings.empty()) counts[0] = 'N';
    return counts + (verdict.complete ? "; a whole report of " : "; not a whole report, ") +
           Grouped(tally.sections) + " sections";
}

// How much there is to see of what differs.
void WriteDifferences(Html& html, const PageContent& page) {
    const auto count = [](const auto& lines, auto differs) {
        return Grouped(static_cast<size_t>(std::ranges::count_if(lines, differs)));
    };
    using SectionLine = Comparison::SectionLine;
    const auto& [facts, sections, sensors, findings] = page.comparison;
    html << "<p class=\"note\">";
    html.Text("What differs: " + count(facts, &Comparison::FactLine::differs) + " facts, " +
              count(sections, &SectionLine::text_differs) + " sections, " +
              count(sections, &SectionLine::time_differs) + " times; " +
              count(sections, &SectionLine::missing_in_some) + " sections are only in some.");
    html << "</p>\n";
}

void BeginFinding(Html& html, const Finding& finding, std::string_view target) {
    html << "<tr";
    html.Attribute("data-finding", finding.check);
    html.Attribute("data-severity", WordOf(finding.severity))
            << " class=\"" << ClassOf(finding.severity) << "\"><th scope=\"row\"><a";
    WriteLink(html, target);
    html << ">";
    html.Text(finding.subject) << "</a></th>";
}

void WriteFinding(Html& html, const PageContent& page, const Finding& finding) {
    BeginFinding(html, finding, page.TargetOf(0, finding));
    html << "<td>";
    html.Text(finding.what);
    if (!finding.evidence.empty()) {
        html << "<code>";
        html.Text(finding.evidence) << "</code>";
    }
    if (!finding.hint.empty()) (html << "<span class=\"note\"> ").Text(finding.hint) << "</span>";
    html << "</td><td class=\"quiet\">";
    html.Text(WordOf(finding.severity)) << "</td></tr>\n";
}

// The failures that healthy devices have too, in one line until somebody wants to see them.
void WriteExpected(Html& html, const PageContent& page) {
    std::vector<const Section*> expected;
    for (const Report& report : page.reports) {
        for (const Section& section : report.sections) {
            if (!section.expected.empty()) expected.push_back(&section);
        }
    }
    if (expected.empty()) return;
    html << "<details class=\"expected\"><summary>";
    html.Text(Grouped(expected.size()) +
              (expected.size() == 1 ? " section has" : " sections have") +
              " failed as those of healthy devices do");
    html << "</summary><ul>\n";
    for (const Section* const section : expected) {
        html << "<li><a";
        WriteLink(html, SectionId(page.LineOf(*section)));
        html << ">";
        html.Text(section->title) << "</a>: ";
        html.Text(section->failure + "; " + section->expected) << "</li>\n";
    }
    html << "</ul></details>\n";
}

// What is found in several reports, the one beside the other.
void WriteFindings(Html& html, const PageContent& page, const Comparison::FindingLine& line) {
    size_t first = 0;
    while (line.findings[first] == nullptr) ++first;
    BeginFinding(html, *line.findings[first], page.TargetOf(first, *line.findings[first]));
    for (size_t i = 0; i < line.findings.size(); ++i) {
        const Finding* const finding = line.findings[i];
        html << (finding == nullptr ? Markup("<td class=\"fine\">") : Markup("<td>"));
        html.Text(finding == nullptr ? line.otherwise[i] : finding->what) << "</td>";
    }
    html << "</tr>\n";
}

Markup VerdictClass(const PageContent& page) {
    const auto has = [&page](Severity severity) {
        return std::ranges::any_of(page.verdicts, [severity](const Verdict& verdict) {
            return verdict.Count(severity) > 0;
        });
    };
    if (has(Severity::kError)) return "bad";
    return has(Severity::kWarning) ? Markup("doubtful") : Markup("good");
}

void WriteVerdict(Html& html, const PageContent& page) {
    html << "<section id=\"verdict\" class=\"" << VerdictClass(page) << "\">\n<h2>";
    html.Text(Sentence(page)) << "</h2>\n";
    if (!page.comparison.findings.empty()) {
        html << "<div class=\"wide\"><table class=\"findings\">\n";
        if (page.compared()) WriteReportHeads(html, page, "What");
        html << "<tbody>\n";
        if (page.compared()) {
            for (const auto& line : page.comparison.findings) WriteFindings(html, page, line);
        } else {
            for (const Finding& finding : page.verdicts.front().findings) {
                WriteFinding(html, page, finding);
            }
        }
        html << "</tbody></table></div>\n";
    }
    WriteExpected(html, page);
    if (const std::string host = HostSentence(page.reports.front().tally); !host.empty()) {
        html << "<p class=\"note\">";
        html.Text(host) << "</p>\n";
    }
    if (page.compared()) WriteDifferences(html, page);
    html << "</section>\n";
}

struct Group {
    FactRow::Group group;
    Markup title;
};
constexpr std::array kGroups = {
        Group{FactRow::Group::kDevice, "Device"}, Group{FactRow::Group::kBattery, "Battery"},
        Group{FactRow::Group::kModem, "Modem"}, Group{FactRow::Group::kReport, "Report"}};

void WriteFact(Html& html, const PageContent& page, size_t report, const Fact& fact) {
    html.Attribute("data-fact", fact.row->key);
    if (page.compared()) html << " data-report=\"" << report << "\"";
    // The unit is no part of the value: a style puts it there.
    if (fact.row->unit[0] != '\0') html.Attribute("data-unit", fact.row->unit);
    // The gravest finding that rests on it comes first.
    const std::vector<Finding>& findings = page.verdicts[report].findings;
    const auto finding = std::ranges::find_if(findings, [&fact](const Finding& one) {
        return std::ranges::find(one.facts, fact.row) != one.facts.end();
    });
    if (finding == findings.end()) {
        html << ">";
        html.Text(fact.value);
        return;
    }
    html << " class=\"" << ClassOf(finding->severity) << "\"><a";
    WriteLink(html, page.TargetOf(report, *finding));
    html << ">";
    html.Text(fact.value) << "</a>";
}

void WriteFactList(Html& html, const PageContent& page) {
    html << "<div class=\"facts\">\n";
    for (const Group& group : kGroups) {
        const auto here = [&](const Comparison::FactLine& line) {
            return line.row->group == group.group;
        };
        if (std::ranges::none_of(page.comparison.facts, here)) continue;
        html << "<div><h3>" << group.title << "</h3><dl>\n";
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
            if (fact(key).empty()) continue;
            (html << "<span>").Text(fact(key));
            if (key == std::string_view("report.time")) {
                const std::string zone = fact("time.zone");
                html.Text(" " + (zone.empty() ? "(zone not known)" : zone));
            }
            html << "</span> ";
        }
        (html << "<span>").Text(report.file + ", " + HumanSize(report.size)) << "</span> ";
        html << "<span>verbose logging "
             << (!report.verbose   ? Markup("not known")
                 : *report.verbose ? Markup("on")
                                   : Markup("off"))
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
