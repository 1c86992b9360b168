// What boardreport makes of finished reports, pages, records and summaries, beside the script that
// one would write for it, wc and a call for each report. Runs beside the device, which has no
// Python.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "memory_file.h"
#include "program.h"

namespace fs = std::filesystem;

namespace {

constexpr char kPage[] = "/dev/shm/bench.page.html";
constexpr size_t kBytesARecord = 16;

// A finished report.
class Report {
  public:
    // The size is the least.
    Report(size_t records, size_t sections, size_t size) {
        std::FILE* const file = fdopen(dup(file_.fd()), "w");
        std::fputs("verbose logging: disabled\n------ Sensor Black Box ------\n", file);
        std::fputs("*** Sensor 1 (Accelerometer) ***\n", file);
        for (size_t i = 0; i < records; ++i) {
            std::fprintf(file, "Time: %zu, Value: (%.3f, %.3f, %.3f)\n",
                         1'000'000'000 + i * 10'000'000 + i * 7919 % 1000 * 1000,
                         static_cast<double>(i % 97) / 10, -9.8, static_cast<double>(i % 31) / 10);
        }
        const auto begin = static_cast<size_t>(std::ftell(file));
        for (size_t i = 0; i < sections; ++i) {
            std::fprintf(file, "------ LOG (/data/log/%zu) ------\n", i);
            for (size_t got = 0; got <= (size - std::min(size, begin)) / sections;) {
                got += static_cast<size_t>(std::fprintf(
                        file, "%08zu one of the many <lines> of a log, & no more\n", got));
            }
            std::fputs("------ 0.010s was the duration of 'LOG' ------\n", file);
        }
        shown_ = static_cast<size_t>(std::ftell(file)) - begin + records * kBytesARecord;
        std::fclose(file);
    }

    std::string path() const { return file_.path(); }
    // Bytes of sections, and of records as a page may carry them.
    size_t shown() const { return shown_; }

  private:
    const MemoryFile file_;
    size_t shown_ = 0;
};

template <size_t kRecords, size_t kSections, size_t kSize>
const Report& Made() {
    static const Report report(kRecords, kSections, kSize);
    return report;
}
constexpr auto* kOrdinary = Made<7500, 55, kMiB / 2>;
constexpr auto* kBig = Made<1'000'000, 50, 50 * kMiB>;
constexpr auto* kHuge = Made<1, 1, 1024 * kMiB>;

using Command = std::vector<std::string>;

// `calls` of the program, each with the report `times` times and that exit status. The page, if it
// is one that is made, is at kPage.
void Run(benchmark::State& state, Command command, const Report& (*report)(), size_t times = 1,
         int calls = 1, int exit_status = 0) {
    command.resize(command.size() + times, report().path());
    const MemoryFile out;
    long peak = 0;
    for (auto _ : state) {
        out.Rewind();
        for (int i = 0; i < calls; ++i) {
            peak = std::max(peak, RunProgram(command, out.fd(), exit_status));
        }
    }
    const auto kib = [](size_t bytes) { return static_cast<double>(bytes) / 1024; };
    state.counters["peak_kib"] = static_cast<double>(peak);
    state.counters["shown_kib"] = kib(report().shown());
    if (fs::exists(kPage)) state.counters["page_kib"] = kib(fs::file_size(kPage));
    fs::remove(kPage);
}

const Command kMakePage{BOARDREPORT, "page", "-o", kPage};
const Command kRivalsPage{"/usr/bin/python3", RIVAL, "page", kPage};
const Command kJson{BOARDREPORT, "json"};
const Command kRivalsJson{"/usr/bin/python3", RIVAL, "json"};
const Command kSummary{BOARDREPORT, "summary"};
const Command kCountLines{"/usr/bin/wc", "-l"};
constexpr size_t kFleet = 200;
constexpr int kSomethingIsWrong = 1;  // summary's, of reports that lack most of a real one

BENCHMARK_CAPTURE(Run, page_ordinary, kMakePage, kOrdinary)->UseRealTime();
BENCHMARK_CAPTURE(Run, page_big, kMakePage, kBig)->UseRealTime();
BENCHMARK_CAPTURE(Run, rivals_page_big, kRivalsPage, kBig)->UseRealTime()->Repetitions(3);
BENCHMARK_CAPTURE(Run, page_huge, kMakePage, kHuge)->UseRealTime();
BENCHMARK_CAPTURE(Run, json_ordinary, kJson, kOrdinary)->UseRealTime();
BENCHMARK_CAPTURE(Run, rivals_json_ordinary, kRivalsJson, kOrdinary)->UseRealTime();
BENCHMARK_CAPTURE(Run, json_fleet, kJson, kOrdinary, kFleet)->UseRealTime();
BENCHMARK_CAPTURE(Run, json_calls, kJson, kOrdinary, 1, kFleet)->UseRealTime();
BENCHMARK_CAPTURE(Run, summary_huge, kSummary, kHuge, 1, 1, kSomethingIsWrong)->UseRealTime();
BENCHMARK_CAPTURE(Run, wc_huge, kCountLines, kHuge)->UseRealTime();

}  // namespace
