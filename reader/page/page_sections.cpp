// Every section with its text, or with what differs in it.

#include <algorithm>
#include <map>

#include "line_diff.h"
#include "page_parts.h"
#include "units.h"
#include "utf8.h"

namespace reader {
namespace {

// Larger texts are shown by their beginning and end, and not compared line by line.
constexpr uint64_t kLargest = PageContent::kLargestText;
constexpr uint64_t kShownOfLarge = uint64_t{1} << 20;  // at either end
constexpr uint64_t kPiece = uint64_t{1} << 20;
// More sections than any report has stand open, as what folds takes a browser three times the room
// and time, and are laid out in groups, those in sight alone.
constexpr size_t kFew = 1000;
constexpr size_t kGroup = 250;
constexpr size_t kContext = 3;  // equal lines around those that differ

class SectionsWriter {
  public:
    SectionsWriter(Html& html, const PageContent& page) : html_(html), page_(page) {}

    std::string Write();

  private:
    void WriteSection(size_t line);
    void WriteSummary(const Comparison::SectionLine& line);
    void WriteContent(const Comparison::SectionLine& line);
    void WriteText(const Report& report, TextRange text);
    void WritePre(const Report& report, TextRange text);
    void WriteMarked(const Section& section, const std::map<uint64_t, Severity>& lines);
    void WriteDifference(const Comparison::SectionLine& line, size_t first, size_t other);
    void WriteRuns(const std::vector<DiffRun>& runs, bool folded_lines_too);
    void WriteFolded(std::span<const std::string_view> lines, bool whole);
    void WriteOutside();
    std::string Read(const Report& report, TextRange text);

    Html& html_;
    const PageContent& page_;
    std::string fault_;
    bool flat_ = false;
    bool has_equal_lines_ = false;  // the section that is being written, within its differences
};

std::string SectionsWriter::Read(const Report& report, TextRange text) {
    std::string bytes;
    if (!report.source->ReadAt(text, bytes)) {
        fault_ = report.file + " can't be read again";
    }
    return bytes;
}

// The text as it is in the report, a piece at a time.
void SectionsWriter::WritePre(const Report& report, TextRange text) {
    html_ << "<pre>\n";  // a browser drops the first newline after the tag
    std::string bytes;   // of the piece before, a character's beginning may be left
    while (text.size() > 0 && fault_.empty() && html_.good()) {
        const TextRange piece{text.begin, std::min(text.end, text.begin + kPiece)};
        text.begin = piece.end;
        bytes += Read(report, piece);
        const size_t whole = text.size() > 0 ? WholeCharacters(bytes) : bytes.size();
        html_.Text(std::string_view(bytes).substr(0, whole));
        bytes.erase(0, whole);
    }
    html_ << "</pre>\n";
}

void SectionsWriter::WriteText(const Report& report, TextRange text) {
    if (text.size() == 0) {
        html_ << "<p class=\"note\">Empty.</p><pre></pre>\n";
        return;
    }
    if (page_.options.whole || text.size() <= kLargest) {
        WritePre(report, text);
        return;
    }
    TextRange head{text.begin, text.begin + kShownOfLarge};
    TextRange tail{text.end - kShownOfLarge, text.end};
    // From line to line, where there are lines.
    const std::string beginning = Read(report, head);
    const std::string ending = Read(report, tail);
    if (const size_t last = beginning.rfind('\n'); last != std::string::npos) {
        head.end = head.begin + last + 1;
    }
    if (const size_t first = ending.find('\n');
        first != std::string::npos && first + 1 < ending.size()) {
        tail.begin += first + 1;
    }
    WritePre(report, head);
    html_ << "<p class=\"left-out\">";
    html_.Text(Grouped(tail.begin - head.end) + " bytes (" + HumanSize(tail.begin - head.end) +
               ") are left out here; the report has them, and boardreport page --whole shows them");
    html_ << "</p>\n";
    WritePre(report, tail);
}

// The text with the lines that findings rest on as places of their own.
void SectionsWriter::WriteMarked(const Section& section,
                                 const std::map<uint64_t, Severity>& lines) {
    const std::string bytes = Read(page_.reports.front(), section.text);
    std::string_view rest = bytes;
    uint64_t number = 1;
    html_ << "<pre>\n";
    for (const auto& [line, severity] : lines) {
        size_t begin = 0;
        while (number < line && begin < rest.size()) {
            begin = std::min(rest.find('\n', begin), rest.size() - 1) + 1;
            ++number;
        }
        html_.Text(rest.substr(0, begin));
        rest.remove_prefix(begin);
        const size_t end = std::min(rest.find('\n'), rest.size());
        html_ << "<mark class=\"" << ClassOf(severity) << "\"";
        html_.Attribute("id", LineId(page_.LineOf(section), line)) << ">";
        html_.Text(rest.substr(0, end)) << "</mark>";
        rest.remove_prefix(end);
    }
    html_.Text(rest) << "</pre>\n";
}

void SectionsWriter::WriteFolded(std::span<const std::string_view> lines, bool whole) {
    const std::string told = Grouped(lines.size()) + " equal lines";
    if (!whole) {
        html_ << "<p class=\"fold\">";
        html_.Text(told) << "</p>";
        return;
    }
    html_ << "<details class=\"fold\"><summary>";
    html_.Text(told) << "</summary><pre>\n";
    for (const std::string_view line : lines) (html_ << "  ").Text(line);
    html_ << "</pre></details>";
}

void SectionsWriter::WriteRuns(const std::vector<DiffRun>& runs, bool folded_lines_too) {
    using enum DiffRun::Kind;
    bool in_pre = false;
    const auto pre = [&](bool wanted) {
        if (wanted != in_pre) html_ << (wanted ? Markup("<pre>\n") : Markup("</pre>"));
        in_pre = wanted;
    };
    const auto write = [&](Markup begin, Markup sign, Markup end, std::string_view line) {
        pre(true);
        html_ << begin << sign;
        // A last line without its newline must not run into the next.
        html_.Text(line) << (line.ends_with('\n') ? Markup("") : Markup("<i> (no newline)</i>\n"))
                         << end;
    };
    for (size_t i = 0; i < runs.size(); ++i) {
        const std::span<const std::string_view> lines = runs[i].lines;
        if (runs[i].kind != kCommon) {
            for (const std::string_view line : lines) {
                if (runs[i].kind == kRemoved) {
                    write("<del>", "- ", "</del>", line);
                } else {
                    write("<ins>", "+ ", "</ins>", line);
                }
            }
            continue;
        }
        const size_t before = i == 0 ? 0 : kContext;
        const size_t after = i + 1 == runs.size() ? 0 : kContext;
        // What one more line of fold would take is better shown.
        const bool folds = lines.size() > before + after + 1;
        const size_t folded_to = folds ? lines.size() - after : before;
        for (size_t k = 0; k < lines.size(); ++k) {
            if (folds && k == before) {
                pre(false);
                WriteFolded(lines.subspan(before, folded_to - before), folded_lines_too);
                k = folded_to;
                if (k == lines.size()) break;
            }
            write("", "  ", "", lines[k]);
        }
    }
    pre(false);
    html_ << "\n";
}

void SectionsWriter::WriteDifference(const Comparison::SectionLine& line, size_t first,
                                     size_t other) {
    const Section& a = *line.sections[first];
    const Section& b = *line.sections[other];
    html_ << "<h4 data-first=\"" << first << "\" data-other=\"" << other << "\">−";
    WriteChip(html_, page_, first);
    html_ << "&nbsp; +";
    WriteChip(html_, page_, other);
    html_ << "</h4>\n";
    if (a.text.size() <= kLargest && b.text.size() <= kLargest) {
        const std::string before = Read(page_.reports[first], a.text);
        const std::string after = Read(page_.reports[other], b.text);
        if (const auto runs = DiffLines(before, after)) {
            if (runs->size() == 1 && runs->front().kind == DiffRun::Kind::kCommon) {
                html_ << "<p class=\"note\">The same.</p>\n";
                return;
            }
            // All that is equal has to be there only once.
            WriteRuns(*runs, !has_equal_lines_);
            has_equal_lines_ = true;
            return;
        }
    }
    html_ << "<p class=\"note\">";
    html_.Text("They differ (" + HumanSize(a.text.size()) + " and " + HumanSize(b.text.size()) +
               "), in too much to be compared line by line.");
    html_ << "</p>\n";
    WriteChip(html_, page_, first);
    WriteText(page_.reports[first], a.text);
    WriteChip(html_, page_, other);
    WriteText(page_.reports[other], b.text);
}

void SectionsWriter::WriteContent(const Comparison::SectionLine& line) {
    const auto has = [](const Section* section) { return section != nullptr; };
    const auto first =
            static_cast<size_t>(std::ranges::find_if(line.sections, has) - line.sections.begin());
    const Section& section = *line.sections[first];
    html_ << "<p class=\"detail\">";
    html_.Text(section.detail) << "</p>\n";
    bool shown = false;
    has_equal_lines_ = false;
    for (size_t i = first + 1; i < line.sections.size() && line.text_differs; ++i) {
        if (line.sections[i] == nullptr) continue;
        WriteDifference(line, first, i);
        shown = true;
    }
    if (shown) return;
    const auto* const marked = page_.MarkedLines(section);
    if (marked != nullptr) return WriteMarked(section, *marked);
    WriteText(page_.reports[first], section.text);
}

void SectionsWriter::WriteSummary(const Comparison::SectionLine& line) {
    html_ << (flat_ ? Markup("<p class=\"head\">") : Markup("<summary>"))
          << "<span class=\"title\">";
    html_.Text(line.title) << "</span>";
    for (size_t i = 0; i < line.sections.size(); ++i) {
        const Section* const section = line.sections[i];
        if (section == nullptr || section->Trouble().empty()) continue;
        html_ << (section->expected.empty() ? Markup(" <span class=\"trouble\">")
                                            : Markup(" <span class=\"note\">"));
        WriteChip(html_, page_, i);
        html_.Text(section->Trouble()) << "</span>";
    }
    if (page_.compared()) {
        if (line.missing_in_some) {
            html_ << " <span class=\"note\">only in";
            for (size_t i = 0; i < line.sections.size(); ++i) {
                if (line.sections[i] != nullptr) WriteChip(html_, page_, i);
            }
            html_ << "</span>";
        }
        if (line.text_differs) html_ << " <span class=\"differing\">differs</span>";
    }
    const auto first =
            *std::ranges::find_if(line.sections, [](const Section* s) { return s != nullptr; });
    html_ << " <span class=\"number size\">";
    html_.Text(HumanSize(first->text.size())) << "</span> <span class=\"number\">";
    html_.Fixed(first->seconds, 3)
            << " s</span>" << (flat_ ? Markup("</p>") : Markup("</summary>\n"));
}

void SectionsWriter::WriteSection(size_t index) {
    const Comparison::SectionLine& line = page_.comparison.sections[index];
    std::string_view trouble;
    std::string_view expected;  // only where none of them has a failure of another kind
    bool unexpected = false;
    const Section* first = nullptr;
    for (const Section* const section : line.sections) {
        if (section == nullptr) continue;
        if (first == nullptr) first = section;
        if (trouble.empty()) trouble = section->Trouble();
        if (expected.empty()) expected = section->expected;
        unexpected = unexpected || (section->expected.empty() && !section->Trouble().empty());
    }
    if (unexpected) expected = {};
    html_ << (flat_ ? Markup("<div") : Markup("<details"));
    html_.Attribute("id", SectionId(index)).Attribute("data-section", line.title);
    html_.Attribute("data-seconds", Fixed(first->seconds, 3));
    if (!trouble.empty()) html_.Attribute("data-failed", trouble);
    if (!expected.empty()) html_.Attribute("data-expected", expected);
    if (page_.compared()) {
        const auto of = std::ranges::find(line.sections, first) - line.sections.begin();
        html_ << " data-of=\"" << of << "\"";
    } else if (const auto at = page_.BeginOf(*first)) {
        html_.Attribute("data-at", Fixed(*at, 3));
    }
    if (line.text_differs || (page_.compared() && line.missing_in_some)) html_ << " data-differs";
    html_ << ">\n";
    WriteSummary(line);
    html_ << "<div class=\"text\">\n";
    WriteContent(line);
    html_ << "</div>" << (flat_ ? Markup("</div>") : Markup("</details>\n"));
}

// Headings and the like, which belong to no section, and are not to be lost either.
void SectionsWriter::WriteOutside() {
    for (size_t i = 0; i < page_.reports.size(); ++i) {
        const Report& report = page_.reports[i];
        if (report.outside.empty()) continue;
        html_ << "<details class=\"outside\"><summary><span class=\"title\">";
        WriteChip(html_, page_, i);
        html_ << "Lines outside of sections</span></summary><div class=\"text\">\n";
        for (const TextRange range : report.outside) WriteText(report, range);
        html_ << "</div></details>\n";
    }
}

std::string SectionsWriter::Write() {
    html_ << "<section id=\"sections\">\n<h2>Sections</h2>\n<div class=\"tools\" role=\"search\" "
             "hidden><input type=\"search\" placeholder=\"Search in "
          << page_.comparison.sections.size() << " sections"
          << (page_.options.bundle ? Markup(", the bundle") : Markup(""))
          << " and the facts\" aria-label=\"Search\" autocomplete=\"off\" "
             "spellcheck=\"false\"><button type=\"button\" id=\"previous\" title=\"Previous hit "
             "(Shift+Enter)\" aria-label=\"Previous hit\">↑</button><button type=\"button\" "
             "id=\"next\" title=\"Next hit (Enter)\" aria-label=\"Next hit\">↓</button><button "
             "type=\"button\" id=\"failing\" aria-pressed=\"false\">Failures only</button>";
    if (page_.compared()) {
        html_ << "<button type=\"button\" id=\"differing\" aria-pressed=\"false\">Differs "
                 "only</button>";
    }
    html_ << "<button type=\"button\" id=\"open-all\">Open all</button>";
    html_ << "<span id=\"found\" class=\"note\" role=\"status\"></span></div>\n";
    const size_t count = page_.comparison.sections.size();
    flat_ = count > kFew;
    for (size_t line = 0; line < count && fault_.empty(); ++line) {
        if (flat_ && line % kGroup == 0) html_ << "<div class=\"group\">\n";
        WriteSection(line);
        if (flat_ && (line % kGroup == kGroup - 1 || line + 1 == count)) html_ << "</div>\n";
    }
    WriteOutside();
    return fault_;
}

}  // namespace

std::string WriteSections(Html& html, const PageContent& page) {
    return SectionsWriter(html, page).Write();
}

}  // namespace reader
