// What a section costs beside the least that could do its work: a bare spawn and wait of the same
// program, the same system calls around a file written by hand; and beside a shell loop and cat.

#include <DumpstateUtil.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include "files.h"
#include "program.h"

namespace {

using android::os::dumpstate::DumpFileToFd;
using android::os::dumpstate::RunCommandToFd;

constexpr char kProgram[] = "/bin/true";
constexpr size_t kSmall = 4000;

// A report that begins anew with every section.
class Report {
  public:
    Report() = default;
    ~Report() { close(fd_); }
    Report(const Report&) = delete;
    Report& operator=(const Report&) = delete;

    int fd() const { return fd_; }
    void Rewind() const { lseek(fd_, 0, SEEK_SET); }

  private:
    const int fd_ = memfd_create("report", MFD_CLOEXEC);
};

// Touched memory that the process holds while it spawns.
std::unique_ptr<char[]> Ballast(int64_t mebibytes) {
    const size_t size = static_cast<size_t>(mebibytes) * kMiB;
    auto memory = std::make_unique_for_overwrite<char[]>(size);
    std::memset(memory.get(), 1, size);
    return memory;
}

void Holding(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgName("MiB")->Arg(10)->Arg(1024)->UseRealTime();
}

void BM_Command(benchmark::State& state) {
    const auto ballast = Ballast(state.range(0));
    const Report report;
    for (auto _ : state) {
        RunCommandToFd(report.fd(), "T", {kProgram});
        report.Rewind();
    }
}
BENCHMARK(BM_Command)->Apply(Holding);

void BM_BareSpawnAndWait(benchmark::State& state) {
    const auto ballast = Ballast(state.range(0));
    const Report report;
    for (auto _ : state) RunProgram({kProgram}, report.fd());
}
BENCHMARK(BM_BareSpawnAndWait)->Apply(Holding);

void BM_ShellLoopWithTimeout(benchmark::State& state) {
    constexpr char kScript[] =
            "i=0; while [ $i -lt 20 ]; do echo '------ T (/bin/true) ------';"
            " timeout 10 /bin/true; echo '------ T ------'; i=$((i+1)); done";
    const Report report;
    while (state.KeepRunningBatch(20)) {
        RunProgram({"/vendor/bin/sh", "-c", kScript}, report.fd());
        report.Rewind();
    }
}
BENCHMARK(BM_ShellLoopWithTimeout)->UseRealTime();

void DumpAgainAndAgain(benchmark::State& state, const std::string& path) {
    const Report report;
    for (auto _ : state) {
        DumpFileToFd(report.fd(), "T", path);
        report.Rewind();
    }
}

// A titled section of one file: the same system calls with nothing that bounds or guards them.
void WriteSectionByHand(int report, const std::string& path) {
    const auto start = std::chrono::steady_clock::now();
    const int in = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (in < 0) return;
    std::array<char, 4096> content;
    size_t size = 0;
    for (ssize_t got; (got = read(in, &content[size], content.size() - size)) > 0;) {
        size += static_cast<size_t>(got);
    }
    close(in);
    struct stat status {};
    if (fstat(report, &status) != 0) return;
    const std::chrono::duration<double> duration = std::chrono::steady_clock::now() - start;
    std::array<char, 8192> section;
    const int length =
            std::snprintf(section.data(), section.size(),
                          "------ T (%s) ------\n%.*s------ %.3fs was the duration of 'T' "
                          "------\n",
                          path.c_str(), static_cast<int>(size), content.data(), duration.count());
    benchmark::DoNotOptimize(write(report, section.data(), static_cast<size_t>(length)));
}

void WriteAgainAndAgain(benchmark::State& state, const std::string& path) {
    const Report report;
    for (auto _ : state) {
        WriteSectionByHand(report.fd(), path);
        report.Rewind();
    }
}

// What most of the report's files are: a few bytes that the kernel makes up.
constexpr char kKernelFile[] = "/proc/sys/kernel/hostname";

void BM_SmallFile(benchmark::State& state) {
    const TemporaryFile file(kSmall);
    DumpAgainAndAgain(state, file.path());
}
BENCHMARK(BM_SmallFile)->UseRealTime();

void BM_SmallFileByHand(benchmark::State& state) {
    const TemporaryFile file(kSmall);
    WriteAgainAndAgain(state, file.path());
}
BENCHMARK(BM_SmallFileByHand)->UseRealTime();

void BM_KernelFile(benchmark::State& state) {
    DumpAgainAndAgain(state, kKernelFile);
}
BENCHMARK(BM_KernelFile)->UseRealTime();

void BM_KernelFileByHand(benchmark::State& state) {
    WriteAgainAndAgain(state, kKernelFile);
}
BENCHMARK(BM_KernelFileByHand)->UseRealTime();

template <typename Copy>
void CopyGibibyte(benchmark::State& state, Sink::Kind kind, Copy copy) {
    static const TemporaryFile file(1024 * kMiB);
    for (auto _ : state) {
        std::optional<Sink> sink(std::in_place, kind);
        copy(sink->fd(), file.path());
        sink->Finish();
        state.PauseTiming();  // it takes its time to free a gibibyte
        sink.reset();
        state.ResumeTiming();
    }
}

void BM_GibibyteFile(benchmark::State& state, Sink::Kind kind) {
    CopyGibibyte(state, kind,
                 [](int out, const std::string& path) { DumpFileToFd(out, "T", path); });
}
BENCHMARK_CAPTURE(BM_GibibyteFile, pipe, Sink::Kind::kPipe)->UseRealTime()->Iterations(1);
BENCHMARK_CAPTURE(BM_GibibyteFile, file, Sink::Kind::kFile)->UseRealTime()->Iterations(1);

void BM_GibibyteCat(benchmark::State& state, Sink::Kind kind) {
    CopyGibibyte(state, kind, [](int out, const std::string& path) {
        RunProgram({"/bin/cat", path.c_str()}, out);
    });
}
BENCHMARK_CAPTURE(BM_GibibyteCat, pipe, Sink::Kind::kPipe)->UseRealTime()->Iterations(1);
BENCHMARK_CAPTURE(BM_GibibyteCat, file, Sink::Kind::kFile)->UseRealTime()->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
