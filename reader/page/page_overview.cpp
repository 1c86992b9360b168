// What a page begins with: which device and when, what is wrong, the facts.

#include <algorithm>
#include <array>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "clock_time.h"
#include "page_parts.h"
#include "units.h"

namespace reader {
namespace {

void WriteReportHeads(Html& html, const PageContent& page, Markup first) {
    html << "<thead><tr><th scope=\"col\">" << first << "</th>";
    for (size_t i = 0; i < page.reports.size(); ++i) {
        html << "<th scope=\"col\">";
        WriteChip(html, page, i);
        html.Text(BaseName(page.reports[i].file)) << "</th>";
    }
    html << "</tr></thead>\n";
}

std::string Sentence(const PageContent& page) {
    if (page.compared()) {
        const size_t count = page.comparison.findings.size();
        return count == 0 ? "Nothing is wrong in any of them"
                          : Counted(count, "finding") + " in one of them or more";
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
        html << "<div class=\"wide\" tabindex=\"0\" role=\"region\" aria-label=\"Findings\"><table "
                "class=\"findings\">\n";
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

// The value as people say it, with its unit; "" where that is the value itself. A table, so that a
// unit is written alike everywhere.
std::string ForPeople(const Fact& fact) {
    struct Unit {
        std::string_view name;
        int digits;
    };
    constexpr std::array kUnits = {Unit{"V", 2}, Unit{"mA", 0}, Unit{"°C", 1}, Unit{"s", 0}};
    const auto* const unit = std::ranges::find(kUnits, fact.row->unit, &Unit::name);
    if (!fact.row->number || unit == kUnits.end()) return "";
    const double number = std::strtod(fact.value.c_str(), nullptr);
    if (unit->name == "s") return Duration(number);
    std::string shown = Fixed(number, unit->digits);
    if (shown.size() >= fact.value.size()) shown = fact.value;
    return shown.append("\u202f").append(unit->name);
}

// The exact value is the element's text, and so what is copied; what people read is the style's.
void WriteValue(Html& html, const Fact& fact) {
    const std::string shown = ForPeople(fact);
    if (shown.empty()) {
        html << ">";
    } else {
        html.Attribute("data-shown", shown);
        html.Attribute("title", fact.value + " " + fact.row->unit) << ">";
    }
    // Long names are broken behind their signs, if anywhere.
    std::string_view rest = fact.value;
    while (!rest.empty()) {
        const std::string_view piece = rest.substr(0, rest.find_first_of("/,") + 1);
        const size_t size = piece.empty() ? rest.size() : piece.size();
        html.Text(rest.substr(0, size)) << (size < rest.size() ? Markup("<wbr>") : Markup(""));
        rest.remove_prefix(size);
    }
}

void WriteFact(Html& html, const PageContent& page, size_t report, const Fact& fact) {
    html.Attribute("data-fact", fact.row->key);
    if (page.compared()) html << " data-report=\"" << report << "\"";
    // The unit is no part of the value: a style puts it there.
    if (fact.row->unit[0] != '\0' && ForPeople(fact).empty()) {
        html.Attribute("data-unit", fact.row->unit);
    }
    // The gravest finding that rests on it comes first.
    const std::vector<Finding>& findings = page.verdicts[report].findings;
    const auto finding = std::ranges::find_if(findings, [&fact](const Finding& one) {
        return std::ranges::find(one.facts, fact.row) != one.facts.end();
    });
    if (finding == findings.end()) {
        return WriteValue(html, fact);
    }
    html << " class=\"" << ClassOf(finding->severity) << "\"><a";
    WriteLink(html, page.TargetOf(report, *finding));
    WriteValue(html, fact);
    html << "</a>";
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
            html << "<div><dt>";
            html.Text(line.row->label) << "</dt><dd";
            WriteFact(html, page, 0, *line.facts.front());
            html << "</dd></div>\n";
        }
        html << "</dl></div>\n";
    }
    html << "</div>\n";
}

// What more than half of the reports say; of two that differ it is the first, which the other is
// compared with. Null when there is no such.
const Fact* UsualOf(const Comparison::FactLine& line) {
    for (const Fact* const one : line.facts) {
        if (one == nullptr) continue;
        const auto same = static_cast<size_t>(std::ranges::count_if(
                line.facts, [one](const Fact* fact) { return fact && SameFact(*fact, *one); }));
        if (2 * same > line.facts.size() || line.facts.size() == 2) return one;
    }
    return nullptr;
}

void WriteFactTable(Html& html, const PageContent& page) {
    html << "<div class=\"wide\" tabindex=\"0\" role=\"region\" aria-label=\"Facts side by "
            "side\"><table class=\"compared\">\n";
    WriteReportHeads(html, page, "Fact");
    html << "<tbody>\n";
    for (const Comparison::FactLine& line : page.comparison.facts) {
        html << (line.differs ? Markup("<tr class=\"differs\">") : Markup("<tr>"));
        html << "<th scope=\"row\">";
        html.Text(line.row->label) << "</th>";
        const Fact* const usual = UsualOf(line);
        for (size_t i = 0; i < line.facts.size(); ++i) {
            const Fact* const fact = line.facts[i];
            const bool odd = line.differs && usual != nullptr &&
                             (fact == nullptr || !SameFact(*fact, *usual));
            html << (odd ? Markup("<td data-odd") : Markup("<td"));
            if (fact != nullptr) {
                WriteFact(html, page, i, *fact);
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

// What ties the sensors' clock to the time of day, a report each: seconds since 1970 in the
// device's zone when it booted and when the report was made, "-" where it doesn't say.
void WriteClocks(Html& html, const PageContent& page) {
    std::string boots;
    std::string nows;
    const auto add = [](std::string& to, std::optional<int64_t> time) {
        to.append(to.empty() ? "" : " ").append(time ? std::to_string(*time) : "-");
    };
    for (const Report& report : page.reports) {
        const Fact* const now = report.FindFact("report.time");
        add(boots, report.BootSeconds());
        add(nows, now == nullptr ? std::nullopt : ParseTime(now->value));
    }
    html << "<main";
    html.Attribute("data-boots", boots).Attribute("data-nows", nows) << ">\n";
}

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
    html.Text(device.empty() ? BaseName(report.file) : device) << "</h1>\n<p class=\"about\">";
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
        (html << "<span>").Text(BaseName(report.file) + ", " + HumanSize(report.size))
                << "</span> ";
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
            html.Text(BaseName(page.reports[i].file) + ", " + HumanSize(page.reports[i].size))
                    << "</span> ";
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
    WriteClocks(html, page);
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
