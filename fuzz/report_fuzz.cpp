// The reader of reports: however a report is cut, it tells the same, all of it within the report
// and nothing twice. An input is a byte, which the sizes of the pieces come from, and the report.

#include <algorithm>
#include <string>
#include <string_view>

#include "fuzz_input.h"
#include "report.h"
#include "summary.h"
#include "utf8.h"

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
    return text + (report.cut ? "cut" : "") + report.BlackBoxTrouble();
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
    std::string text = reader::Summarize({&report, 1}, false).text;
    Require(reader::Summarize({&report, 1}, true).text.size() >= text.size(), "colours add");
    while (!text.empty()) {
        const size_t end = text.find('\n');
        const std::string line = text.substr(0, end);
        Require(reader::Columns(line) <= 80, "a line has 80 columns");
        Require(reader::Printable(line) == line, "nothing steers the terminal");
        text.erase(0, end + 1);
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
    return 0;
}
