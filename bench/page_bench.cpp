// Pages of finished reports, made by boardreport, beside the script that one would write for it and
// beside counting the lines. Runs beside the device, which has no Python.

#include <benchmark/benchmark.h>
#include <fcntl.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "files.h"
#include "program.h"

namespace fs = std::filesystem;

namespace {

constexpr char kFolder[] = "/dev/shm/page_bench";
constexpr char kFooter[] = "------ 0.010s was the duration of 'LOG' ------\n";
constexpr size_t kBytesARecord = 16;

struct Shape {
    const char* name;
    size_t records;
    size_t sections;
    size_t size;  // at least
};
constexpr Shape kOrdinary{"ordinary", 7500, 55, kMiB / 2};
constexpr Shape kBig{"big", 1'000'000, 50, 50 * kMiB};
constexpr Shape kHuge{"huge", 0, 1, 1024 * kMiB};

struct Made {
    std::string path;
    size_t shown = 0;  // bytes of sections, and of records as a page may carry them
};

void AddRecords(std::FILE* file, size_t count) {
    std::fputs("------ Sensor Black Box ------\n*** Sensor 1 (Accelerometer) ***\n", file);
    for (size_t i = 0; i < count; ++i) {
        std::fprintf(file, "Time: %zu, Value: (%.3f, %.3f, %.3f)\n",
                     1'000'000'000 + i * 10'000'000 + i * 7919 % 1000 * 1000,
                     static_cast<double>(i % 97) / 10, -9.8, static_cast<double>(i % 31) / 10);
    }
}

Made MakeReport(const Shape& shape) {
    Made made{std::string(kFolder) + "/" + shape.name + ".txt"};
    fs::create_directories(kFolder);
    std::FILE* const file = std::fopen(made.path.c_str(), "w");
    std::fputs("verbose logging: disabled\n", file);
    if (shape.records > 0) AddRecords(file, shape.records);
    const auto begin = static_cast<size_t>(std::ftell(file));
    const size_t left = shape.size > begin ? shape.size - begin : 0;
    for (size_t i = 0; i < shape.sections; ++i) {
        std::fprintf(file, "------ LOG (/data/log/%zu) ------\n", i);
        for (size_t size = 0; size <= left / shape.sections;) {
            size += static_cast<size_t>(std::fprintf(
                    file, "%08zu one of the many <lines> of a log, & no more\n", size));
        }
        std::fputs(kFooter, file);
    }
    made.shown = static_cast<size_t>(std::ftell(file)) - begin + shape.records * kBytesARecord;
    std::fclose(file);
    return made;
}

// Made when first asked for, and removed at the end.
class Reports {
  public:
    ~Reports() { fs::remove_all(kFolder); }
    const Made& operator[](const Shape& shape) {
        Made& made = made_[shape.name];
        if (made.path.empty()) made = MakeReport(shape);
        return made;
    }

  private:
    std::map<std::string, Made> made_;
};

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
    const Made& made = reports[shape];
    const std::string page = std::string(kFolder) + "/page.html";
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
