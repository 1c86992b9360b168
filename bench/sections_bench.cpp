// What sections and log copies cost beside the least that could do their work, a bare spawn and
// wait of the same program or the same system calls by hand; and beside shell loops and cat.

#include <DumpstateUtil.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "log_copy.h"
#include "memory_file.h"
#include "program.h"

namespace fs = std::filesystem;

namespace {

using android::os::dumpstate::DumpFileToFd;
using android::os::dumpstate::RunCommandToFd;

// A report that begins anew with every section.
template <typename Write>
void WriteAgainAndAgain(benchmark::State& state, Write write) {
    const MemoryFile report;
    for (auto _ : state) {
        write(report.fd());
        report.Rewind();
    }
}

constexpr char kProgram[] = "/bin/true";

void BM_Command(benchmark::State& state) {
    WriteAgainAndAgain(state, [](int report) { RunCommandToFd(report, "T", {kProgram}); });
}
BENCHMARK(BM_Command)->UseRealTime();

void BM_BareSpawnAndWait(benchmark::State& state) {
    WriteAgainAndAgain(state, [](int report) { RunProgram({kProgram}, report); });
}
BENCHMARK(BM_BareSpawnAndWait)->UseRealTime();

constexpr char kScript[] =
        "i=0; while [ $i -lt 20 ]; do echo '------ T (/bin/true) ------';"
        " timeout 10 /bin/true; echo '------ T ------'; i=$((i+1)); done";

void BM_20InShellLoopWithTimeout(benchmark::State& state) {
    WriteAgainAndAgain(state, [](int report) {
        RunProgram({"/vendor/bin/sh", "-c", kScript}, report);
    });
}
BENCHMARK(BM_20InShellLoopWithTimeout)->UseRealTime();

constexpr size_t kSmall = 4000;

// A titled section of one file that a thread of its own has read, with nothing that bounds or
// guards it.
void WriteSectionByHand(int report, const std::string& path) {
    const auto start = std::chrono::steady_clock::now();
    std::array<char, kSmall + 1> content;
    size_t size = 0;
    std::thread([&] {
        const int in = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
        for (ssize_t got; (got = read(in, &content[size], content.size() - size)) > 0;) {
            size += static_cast<size_t>(got);
        }
        close(in);
    }).join();
    const std::chrono::duration<double> duration = std::chrono::steady_clock::now() - start;
    std::array<char, 2 * kSmall> section;
    const int length =
            std::snprintf(section.data(), section.size(),
                          "------ T (%s) ------\n%.*s------ %.3fs was the duration of 'T' ------\n",
                          path.c_str(), static_cast<int>(size), content.data(), duration.count());
    benchmark::DoNotOptimize(write(report, section.data(), static_cast<size_t>(length)));
}

void BM_SmallFile(benchmark::State& state) {
    const MemoryFile file(kSmall);
    WriteAgainAndAgain(state, [&](int report) { DumpFileToFd(report, "T", file.path()); });
}
BENCHMARK(BM_SmallFile)->UseRealTime();

void BM_SmallFileByHand(benchmark::State& state) {
    const MemoryFile file(kSmall);
    WriteAgainAndAgain(state, [&](int report) { WriteSectionByHand(report, file.path()); });
}
BENCHMARK(BM_SmallFileByHand)->UseRealTime();

void BM_GibibyteToPipe(benchmark::State& state, void (*copy)(int out, const std::string& path)) {
    static const MemoryFile file(1024 * kMiB);
    for (auto _ : state) copy(DrainedPipe().fd(), file.path());
}
BENCHMARK_CAPTURE(BM_GibibyteToPipe, dump,
                  [](int out, const std::string& path) { DumpFileToFd(out, "T", path); })
        ->UseRealTime()
        ->Iterations(1);
BENCHMARK_CAPTURE(BM_GibibyteToPipe, cat,
                  [](int out, const std::string& path) {
                      RunProgram({"/bin/cat", path}, out);
                  })
        ->UseRealTime()
        ->Iterations(1);

constexpr char kCopies[] = "/dev/shm/copies";
const std::string kCopy = "/vendor/bin/cp $f /dev/shm/copies/${f##*/}";

// A directory of that many logs.
std::string Logs(int64_t count) {
    const std::string directory = "/dev/shm/logs." + std::to_string(count);
    if (!fs::create_directory(directory)) return directory;
    const std::string log(kSmall, 'x');
    for (int64_t i = 0; i < count; ++i) {
        std::ofstream(directory + "/log_" + std::to_string(10000 + i)) << log;
    }
    return directory;
}

template <typename CopyAll>
void CopyLogs(benchmark::State& state, CopyAll copy) {
    const std::string logs = Logs(state.range(0));
    const int out = open("/dev/null", O_WRONLY | O_CLOEXEC);
    for (auto _ : state) {
        state.PauseTiming();
        fs::remove_all(kCopies);
        fs::create_directory(kCopies);
        state.ResumeTiming();
        copy(logs, out);
    }
    close(out);
}

void BM_DumpLogs(benchmark::State& state) {
    CopyLogs(state, [](const std::string& logs, int out) {
        aidl::android::hardware::dumpstate::dumpLogs(out, logs, kCopies, -1, "log_");
    });
}
BENCHMARK(BM_DumpLogs)->Arg(100)->UseRealTime();
BENCHMARK(BM_DumpLogs)->Arg(1000)->UseRealTime()->Iterations(1)->Repetitions(3);

void BM_BareCopies(benchmark::State& state) {
    std::vector<std::string> names;
    for (const auto& log : fs::directory_iterator(Logs(state.range(0)))) {
        names.push_back(log.path().filename());
    }
    CopyLogs(state, [&](const std::string& logs, int out) {
        for (const std::string& name : names) {
            RunProgram({"/vendor/bin/sh", "-c",
                        "/vendor/bin/cp " + logs + "/" + name + " " + kCopies + "/" + name},
                       out);
        }
    });
}
BENCHMARK(BM_BareCopies)->Arg(100)->UseRealTime();

// By cp alone, and by a shell of its own for each cp, which is how dumpLogs has to run it.
void BM_ShellLoop(benchmark::State& state, const std::string& body) {
    CopyLogs(state, [&](const std::string& logs, int out) {
        RunProgram({"/vendor/bin/sh", "-c", "for f in " + logs + "/log_*; do " + body + "; done"},
                   out);
    });
}
BENCHMARK_CAPTURE(BM_ShellLoop, cp, kCopy)->Arg(100)->UseRealTime();
BENCHMARK_CAPTURE(BM_ShellLoop, sh_cp, "/vendor/bin/sh -c \"" + kCopy + "\"")
        ->Arg(100)
        ->UseRealTime();

}  // namespace
