// What a section costs beside the least that could do its work: a bare spawn and wait of the same
// program, a bare open, sendfile and close of the same file; and beside a shell loop and cat.

#include <DumpstateUtil.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <optional>

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
    for (auto _ : state) RunProgram({kProgram}, STDERR_FILENO);
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

void BM_SmallFile(benchmark::State& state) {
    const TemporaryFile file(kSmall);
    const Report report;
    for (auto _ : state) {
        DumpFileToFd(report.fd(), "T", file.path());
        report.Rewind();
    }
}
BENCHMARK(BM_SmallFile);

void BM_BareOpenSendfileClose(benchmark::State& state) {
    const TemporaryFile file(kSmall);
    const Report report;
    for (auto _ : state) {
        const int in = open(file.path().c_str(), O_RDONLY | O_CLOEXEC);
        benchmark::DoNotOptimize(sendfile(report.fd(), in, nullptr, kSmall));
        close(in);
        report.Rewind();
    }
}
BENCHMARK(BM_BareOpenSendfileClose);

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
