// What redacting a report and a bundle takes, beside gzip -1 of the same and a script with the same
// patterns.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "memory_file.h"
#include "program.h"

namespace {

constexpr char kReport[] = "/dev/shm/bench.redacted.txt";
constexpr char kBundle[] = "/dev/shm/bench.redacted.tar";
constexpr size_t kMember = 64 * kMiB;

void WriteLog(std::FILE* file, size_t size) {
    unsigned random = 1;
    for (size_t written = 0; written + 200 < size;) {
        random = random * 1103515245 + 12345;
        const char* const what = random % 4096 == 0 ? "wlan0: link 3c:28:d1:a0:b1:c2 up, 10.0.0.12"
                                                    : "state changed, nobody cared";
        written += static_cast<size_t>(
                std::fprintf(file, "11-25 07:%02u:%02u.%03u  %4u  %4u I kernel: %s 0x%08x\n",
                             random >> 8 & 31, random >> 13 & 31, random >> 18 & 511,
                             random >> 20 & 4095, random >> 4 & 4095, what, random));
    }
}

// A report of 50 MiB.
const MemoryFile& Report() {
    static const MemoryFile file;
    if (lseek(file.fd(), 0, SEEK_END) > 0) return file;
    std::FILE* const out = fdopen(dup(file.fd()), "w");
    std::fputs("verbose logging: disabled\n------ LOG (/log) ------\n[ro.serialno]: [NVW000001]\n",
               out);
    WriteLog(out, 50 * kMiB);
    std::fputs("------ 0.010s was the duration of 'LOG' ------\n", out);
    std::fclose(out);
    return file;
}

// A bundle of so many MiB, of as many members as that takes.
template <size_t kSize>
const MemoryFile& Bundle() {
    static const MemoryFile file;
    if (lseek(file.fd(), 0, SEEK_END) > 0) return file;
    const std::string log = "/dev/shm/bench.log";
    std::FILE* const out = std::fopen(log.c_str(), "w");
    WriteLog(out, kMember);
    std::fclose(out);
    std::vector<std::string> tar{"/usr/bin/tar", "-cf", file.path(), "-P", "--hard-dereference"};
    tar.resize(tar.size() + kSize * kMiB / kMember, log);
    RunProgram(tar, STDERR_FILENO);
    unlink(log.c_str());
    return file;
}

// The program with the report's path and the bundle's.
void Run(benchmark::State& state, std::vector<std::string> command, const MemoryFile& (*last)()) {
    command.push_back(last().path());
    const MemoryFile out;
    long peak = 0;
    for (auto _ : state) {
        out.Rewind();
        peak = std::max(peak, RunProgram(command, out.fd()));
    }
    state.counters["peak_kib"] = static_cast<double>(peak);
    unlink(kReport);
    unlink(kBundle);
}

const std::vector<std::string> kRedact{BOARDREPORT, "redact", "-o", kReport};
const std::vector<std::string> kRedactBundle{BOARDREPORT, "redact", "/dev/null", "-o",
                                             kReport,     "-B",     kBundle,     "-b"};
const std::vector<std::string> kGzip{"/usr/bin/gzip", "-1c"};
const std::vector<std::string> kRival{"/usr/bin/python3", RIVAL};

BENCHMARK_CAPTURE(Run, report, kRedact, Report)->UseRealTime();
BENCHMARK_CAPTURE(Run, rivals_report, kRival, Report)->UseRealTime()->Repetitions(3);
BENCHMARK_CAPTURE(Run, bundle, kRedactBundle, Bundle<1024>)->UseRealTime()->Repetitions(3);
BENCHMARK_CAPTURE(Run, small_bundle, kRedactBundle, Bundle<128>)->UseRealTime()->Repetitions(3);
BENCHMARK_CAPTURE(Run, gzip, kGzip, Bundle<1024>)->UseRealTime()->Repetitions(3);

}  // namespace
