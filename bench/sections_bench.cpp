// What sections and log copies cost beside the least that could do their work, a bare spawn and
// wait of the same program or the same system calls by hand; and beside shell loops and cat.

#include <DumpstateUtil.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
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

constexpr char kProgram[] = "/bin/true";

void BM_Command(benchmark::State& state) {
    const MemoryFile report;
    for (auto _ : state) {
        RunCommandToFd(report.fd(), "T", {kProgram});
        report.Rewind();
    }
}
BENCHMARK(BM_Command)->UseRealTime();

void BM_BareSpawnAndWait(benchmark::State& state) {
    const MemoryFile report;
    for (auto _ : state) RunProgram({kProgram}, report.fd());
}
BENCHMARK(BM_BareSpawnAndWait)->UseRealTime();

void BM_ShellLoopWithTimeout(benchmark::State& state) {
    constexpr char kScript[] =
            "i=0; while [ $i -lt 20 ]; do echo '------ T (/bin/true) ------';"
            " timeout 10 /bin/true; echo '------ T ------'; i=$((i+1)); done";
    const MemoryFile report;
    while (state.KeepRunningBatch(20)) {
        RunProgram({"/vendor/bin/sh", "-c", kScript}, report.fd());
        report.Rewind();
    }
}
BENCHMARK(BM_ShellLoopWithTimeout)->UseRealTime();

constexpr size_t kSmall = 4000;

void BM_SmallFile(benchmark::State& state) {
    const MemoryFile file(kSmall);
    const MemoryFile report;
    for (auto _ : state) {
        DumpFileToFd(report.fd(), "T", file.path());
        report.Rewind();
    }
}
BENCHMARK(BM_SmallFile)->UseRealTime();

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

void BM_SmallFileByHand(benchmark::State& state) {
    const MemoryFile file(kSmall);
    const MemoryFile report;
    for (auto _ : state) {
        WriteSectionByHand(report.fd(), file.path());
        report.Rewind();
    }
}
BENCHMARK(BM_SmallFileByHand)->UseRealTime();

using Copy = void(int out, const std::string& path);

void DumpFile(int out, const std::string& path) {
    DumpFileToFd(out, "T", path);
}
void Cat(int out, const std::string& path) {
    RunProgram({"/bin/cat", path}, out);
}

const MemoryFile& Gibibyte() {
    static const MemoryFile file(1024 * kMiB);
    return file;
}

void BM_LargeFileToPipe(benchmark::State& state, Copy* copy) {
    for (auto _ : state) copy(DrainedPipe().fd(), Gibibyte().path());
}
BENCHMARK_CAPTURE(BM_LargeFileToPipe, dump, DumpFile)->UseRealTime()->Iterations(1);
BENCHMARK_CAPTURE(BM_LargeFileToPipe, cat, Cat)->UseRealTime()->Iterations(1);

// Written before, so that the time isn't what the kernel takes to find a gibibyte of memory.
void BM_LargeFileToFile(benchmark::State& state, Copy* copy) {
    static const MemoryFile report(1025 * kMiB);
    for (auto _ : state) {
        report.Rewind();
        copy(report.fd(), Gibibyte().path());
    }
}
BENCHMARK_CAPTURE(BM_LargeFileToFile, dump, DumpFile)->UseRealTime()->Iterations(1);
BENCHMARK_CAPTURE(BM_LargeFileToFile, cat, Cat)->UseRealTime()->Iterations(1);

constexpr char kCopies[] = "/dev/shm/copies";

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
BENCHMARK(BM_DumpLogs)->ArgName("files")->Arg(100)->UseRealTime();
BENCHMARK(BM_DumpLogs)->ArgName("files")->Arg(1000)->UseRealTime()->Iterations(1)->Repetitions(3);

void BM_BareCopies(benchmark::State& state) {
    std::vector<std::string> names;
    for (const auto& log : fs::directory_iterator(Logs(state.range(0)))) {
        names.push_back(log.path().filename());
    }
    std::ranges::sort(names, std::greater());  // the newest first, as dumpLogs takes them
    CopyLogs(state, [&](const std::string& logs, int out) {
        for (const std::string& name : names) {
            RunProgram({"/vendor/bin/sh", "-c",
                        "/vendor/bin/cp " + logs + "/" + name + " " + kCopies + "/" + name},
                       out);
        }
    });
}
BENCHMARK(BM_BareCopies)->ArgName("files")->Arg(100)->UseRealTime();

// By cp alone, and by a shell of its own for each cp, which is how dumpLogs has to run it.
void BM_ShellLoop(benchmark::State& state, const std::string& body) {
    CopyLogs(state, [&](const std::string& logs, int out) {
        RunProgram({"/vendor/bin/sh", "-c", "for f in " + logs + "/log_*; do " + body + "; done"},
                   out);
    });
}
BENCHMARK_CAPTURE(BM_ShellLoop, cp, "/vendor/bin/cp $f /dev/shm/copies/${f##*/}")
        ->ArgName("files")
        ->Arg(100)
        ->UseRealTime();
BENCHMARK_CAPTURE(BM_ShellLoop, sh_cp,
                  "/vendor/bin/sh -c \"/vendor/bin/cp $f /dev/shm/copies/${f##*/}\"")
        ->ArgName("files")
        ->Arg(100)
        ->UseRealTime();

}  // namespace
