// The reader of reports: however a report is cut, it tells the same, all of it within the report
// and nothing twice, and what is made of it is harmless. An input is a byte, which the sizes of the
// pieces come from, and the report.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "fuzz_input.h"
#include "page.h"
#include "page_built.h"
#include "report.h"
#include "summary.h"
#include "utf8.h"
#include "verdict.h"
#include "watch.h"

namespace {

using reader::Report;

std::string Describe(const Report& report) {
    std::string text;
    const auto range = [&text](reader::TextRange at) {
        text += std::to_string(at.begin) + "-" + std::to_string(at.end) + " ";
    };
    for (const reader::Section& section : report.sections) {
        range(section.text);
        text += section.title + section.detail + std::to_string(section.seconds) +
                std::string(section.Trouble()) + "\n";
    }
    for (const reader::TextRange& outside : report.outside) range(outside);
    for (const reader::Fact& fact : report.facts) text += fact.row->key + fact.value;
    const reader::Verdict verdict = reader::Judge(report);
    for (const reader::Finding& finding : verdict.findings) text += finding.check + finding.says;
    return text + (report.cut ? "cut" : "") + verdict.black_box;
}

Report Read(std::string_view bytes, unsigned seed) {
    Report report;
    reader::ReportBuilder builder(report);
    reader::ReportParser parser(builder.Listener());
    for (unsigned random = seed; !bytes.empty(); random = random * 1103515245 + 12345) {
        const size_t piece = seed == 0 ? bytes.size() : 1 + (random >> 16) % seed;
        parser.Feed(bytes.substr(0, piece));
        bytes.remove_prefix(std::min(piece, bytes.size()));
    }
    parser.Finish();
    builder.Finish(parser);
    return report;
}

void CheckOrder(const Report& report) {
    uint64_t before = 0;
    for (const reader::Section& section : report.sections) {
        Require(section.text.begin >= before, "no byte is of two sections");
        Require(section.text.begin <= section.text.end, "a text doesn't end before it begins");
        Require(section.text.end <= report.size, "a text is within the report");
        before = section.text.end;
    }
}

void CheckSummary(const Report& report) {
    const reader::Verdict verdict = reader::Judge(report);
    std::string text = reader::Summarize({&report, 1}, {&verdict, 1}, false).text;
    Require(reader::Summarize({&report, 1}, {&verdict, 1}, true).text.size() >= text.size(),
            "colours add");
    while (!text.empty()) {
        const size_t end = text.find('\n');
        const std::string line = text.substr(0, end);
        Require(reader::Columns(line) <= 80, "a line has 80 columns");
        Require(reader::Printable(line) == line, "nothing steers the terminal");
        text.erase(0, end + 1);
    }
}

// Read from a file, with all that checks look for in its lines.
reader::Verdict ReadAgain(std::string_view bytes, Report& report) {
    static const reader::Rules rules;
    const int file = memfd_create("report", MFD_CLOEXEC);
    Require(write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
            "there is memory");
    reader::Watch watch(rules, report);
    reader::ReadReport("/proc/self/fd/" + std::to_string(file), true, report,
                       [&watch](reader::Section& section) { watch.Take(section); });
    close(file);
    return reader::Judge(report, watch);
}

// Nothing in a page but the page's own is markup or a control character.
void CheckPage(std::string_view text, unsigned seed) {
    constexpr std::string_view kTags =
            " title head body a header p h1 h2 h3 h4 nav main section div table thead tbody tr th "
            "td "
            "b span strong dl dt dd svg rect circle line text figure figcaption script button "
            "input details wbr "
            "ul li mark code summary pre i ins del ";
    Report reports[2];
    const reader::Verdict verdicts[] = {
            ReadAgain(text, reports[0]),
            ReadAgain(text.substr(text.size() / (seed + 1)), reports[1])};
    std::string page;
    const reader::Sink sink = [&page](std::string_view bytes) {
        page += bytes;
        return true;
    };
    Require(reader::WritePage(reports, verdicts, {}, sink).empty(), "the texts can be read again");
    std::string_view rest = page;
    rest.remove_prefix(reader::PageBegin().size());
    rest.remove_suffix(reader::PageEnd().size());
    while (!rest.empty()) {
        const reader::Utf8Step step = reader::NextUtf8(rest);
        const char c = rest.front();
        Require(step.valid && (c == '\n' || c == '\t' || static_cast<unsigned char>(c) >= 0x20) &&
                        c != 0x7f,
                "a page is plain UTF-8");
        if (c == '<') {
            const size_t from = rest[1] == '/' ? 2 : 1;
            const std::string name(rest.substr(from, rest.find_first_of(" >/\n", from) - from));
            Require(kTags.find(" " + name + " ") != std::string_view::npos, "tags are the page's");
            const std::string_view tag = rest.substr(0, rest.find('>'));
            Require(std::ranges::count(tag, '<') == 1 && std::ranges::count(tag, '"') % 2 == 0,
                    "attributes stay within their quotes");
        }
        rest.remove_prefix(step.size);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const unsigned seed = input.Byte();
    const auto bytes = input.Bytes(size);
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    const Report whole = Read(text, 0);
    Require(Describe(whole) == Describe(Read(text, seed)), "the cuts make no difference");
    CheckOrder(whole);
    CheckSummary(whole);
    CheckPage(text, seed);
    return 0;
}
