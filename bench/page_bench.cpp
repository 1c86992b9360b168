// Pages of finished reports, made by boardreport, beside the script that one would write for it and
// beside counting the lines. Runs beside the device, which has no Python.

#include <benchmark/benchmark.h>
#include <fcntl.h>

#include <filesystem>
#include <string>
#include <vector>

#include "program.h"
#include "reports.h"

namespace fs = std::filesystem;

namespace {

using Arguments = std::vector<const char*>;

Arguments BoardReport(const char* report, const char* page) {
    return {BOARDREPORT, "page", "-o", page, report};
}
Arguments Python(const char* report, const char* page) {
    return {"/usr/bin/python3", PAGE_SCRIPT, report, page};
}
Arguments CountLines(const char* report, const char* /*page*/) {
    return {"/usr/bin/wc", "-l", report};
}

void Run(benchmark::State& state, const Shape& shape,
         Arguments (*arguments)(const char*, const char*)) {
    static Reports reports;
    const Reports::Made& made = reports[shape];
    const std::string page = Reports::PathOf("page.html");
    const int out = open("/dev/null", O_WRONLY | O_CLOEXEC);
    long peak = 0;
    for (auto _ : state) peak = RunProgram(arguments(made.path.c_str(), page.c_str()), out);
    close(out);
    const auto kib = [](size_t bytes) { return static_cast<double>(bytes) / 1024; };
    state.counters["peak_kib"] = static_cast<double>(peak);
    state.counters["shown_kib"] = kib(made.shown);
    if (fs::exists(page)) state.counters["page_kib"] = kib(fs::file_size(page));
    fs::remove(page);
    state.counters["memory_kib"] = 102400;  // what pages and their making may come to
    state.counters["small_kib"] = 2048;
}

BENCHMARK_CAPTURE(Run, page_ordinary, kOrdinary, BoardReport)->UseRealTime();
BENCHMARK_CAPTURE(Run, page_big, kBig, BoardReport)->UseRealTime();
BENCHMARK_CAPTURE(Run, python_big, kBig, Python)->UseRealTime()->Iterations(1)->Repetitions(3);
BENCHMARK_CAPTURE(Run, page_huge, kHuge, BoardReport)->UseRealTime();
BENCHMARK_CAPTURE(Run, wc_huge, kHuge, CountLines)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
