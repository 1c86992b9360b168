// What boardreport prints of finished reports, records and summaries, beside the script that one
// would write for it, cat, wc and a call for each report. Runs beside the device, which has no
// Python.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "program.h"
#include "reports.h"

namespace {

using Arguments = std::vector<const char*>;
const Arguments kJson{BOARDREPORT, "json"};
const Arguments kSummary{BOARDREPORT, "summary"};
const Arguments kPython{"/usr/bin/python3", RECORDS_SCRIPT};
const Arguments kCat{"/usr/bin/cat"};
const Arguments kCountLines{"/usr/bin/wc", "-l"};

// `calls` of the program, each with the report `times` times.
void Records(benchmark::State& state, Arguments arguments, const Shape& shape, size_t times = 1,
             int calls = 1) {
    static Reports reports;
    arguments.resize(arguments.size() + times, reports[shape].path.c_str());
    // No /dev/null, which cat would be done with at once.
    const int out = open(Reports::PathOf("out").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    long peak = 0;
    for (auto _ : state) {
        if (ftruncate(out, 0) != 0 || lseek(out, 0, SEEK_SET) != 0) state.SkipWithError("no file");
        for (int i = 0; i < calls; ++i) peak = std::max(peak, RunProgram(arguments, out));
    }
    state.counters["peak_kib"] = static_cast<double>(peak);
    state.counters["out_kib"] = static_cast<double>(lseek(out, 0, SEEK_CUR)) / 1024;
    close(out);
}

constexpr size_t kFleet = 200;

BENCHMARK_CAPTURE(Records, json_ordinary, kJson, kOrdinary)->UseRealTime();
BENCHMARK_CAPTURE(Records, python_ordinary, kPython, kOrdinary)->UseRealTime();
BENCHMARK_CAPTURE(Records, cat_ordinary, kCat, kOrdinary)->UseRealTime();
BENCHMARK_CAPTURE(Records, json_big, kJson, kBig)->UseRealTime();
BENCHMARK_CAPTURE(Records, python_big, kPython, kBig)->UseRealTime()->Iterations(1)->Repetitions(3);
BENCHMARK_CAPTURE(Records, cat_big, kCat, kBig)->UseRealTime();
BENCHMARK_CAPTURE(Records, json_fleet, kJson, kOrdinary, kFleet)->UseRealTime();
BENCHMARK_CAPTURE(Records, json_calls, kJson, kOrdinary, 1, kFleet)->UseRealTime();
BENCHMARK_CAPTURE(Records, summary_huge, kSummary, kHuge)->UseRealTime();
BENCHMARK_CAPTURE(Records, wc_huge, kCountLines, kHuge)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
