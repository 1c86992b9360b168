// The reader of reports: however a report is cut, it has the same sections. An input is a byte,
// which the sizes of the pieces come from, and the report.

#include <string>
#include <string_view>
#include <vector>

#include "fuzz_input.h"
#include "report_reader.h"

namespace {

std::vector<std::string> Read(std::string_view report, unsigned seed) {
    std::vector<std::string> events;
    size_t begun = 0;
    ReportReader reader(
            [&](std::string_view title) {
                ++begun;
                events.push_back("> " + std::string(title));
            },
            [&](const ReportReader::Section& section) {
                Require(begun-- == 1, "a section that ends has begun, and no other");
                events.push_back("< " + section.title + " " + std::to_string(section.seconds) +
                                 (section.finished ? " " : " unfinished ") + section.failure);
            });
    for (unsigned random = seed; !report.empty(); random = random * 1103515245 + 12345) {
        const size_t piece = seed == 0 ? report.size() : 1 + (random >> 16) % seed;
        reader.Feed(report.substr(0, piece));
        report.remove_prefix(std::min(piece, report.size()));
    }
    reader.Finish();
    Require(begun == 0, "a section that has begun ends");
    return events;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const unsigned seed = input.Byte();
    const auto bytes = input.Bytes(size);
    const std::string_view report(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    Require(Read(report, 0) == Read(report, seed), "the cuts make no difference");
    return 0;
}
