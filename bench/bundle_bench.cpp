// The bundle's archive streamed through a pipe by the service, beside the same calls by hand, and
// beside dd and cat, which take a process of their own. The commands that
// pack it and remove it are left out: they are other programs' work.

#include <DumpstateUtil.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "dumpstate.h"
#include "files.h"
#include "program.h"
#include "staging.h"

namespace android::os::dumpstate {

const CommandOptions CommandOptions::DEFAULT = CommandOptions::WithTimeout(10).Build();

int RunCommandToFd(int /*fd*/, const std::string& /*title*/,
                   const std::vector<std::string>& /*full_command*/,
                   const CommandOptions& /*options*/) {
    return 0;
}

int DumpFileToFd(int /*fd*/, const std::string& /*title*/, const std::string& /*path*/) {
    return 0;
}

bool PropertiesHelper::IsUserBuild() {
    return false;
}

}  // namespace android::os::dumpstate

namespace {

using aidl::android::hardware::dumpstate::Dumpstate;
using aidl::android::hardware::dumpstate::kBundleArchive;
using aidl::android::hardware::dumpstate::kTemporaryFolder;

// The most memory that this process has held since the last reset.
void ResetPeak() {
    std::ofstream("/proc/self/clear_refs") << 5;
}
double PeakKibibytes() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        double size = 0;
        if (word == "VmHWM:" && status >> size) return size;
    }
    return 0;
}

template <typename Stream>
void StreamArchive(benchmark::State& state, Stream stream) {
    const TemporaryFile archive(static_cast<size_t>(state.range(0)) * kMiB);
    std::filesystem::create_directories(kTemporaryFolder);
    std::filesystem::remove(kBundleArchive);
    std::filesystem::create_symlink(archive.path(), kBundleArchive);
    ResetPeak();
    for (auto _ : state) {
        Sink sink(Sink::Kind::kPipe);
        stream(sink.fd());
        sink.Finish();
    }
    state.counters["peak_kib"] = PeakKibibytes();
}

void Sizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgName("MiB")->Arg(1)->Arg(32)->Arg(1024)->UseRealTime();
}

void BM_Bundle(benchmark::State& state) {
    const auto dumpstate = ndk::SharedRefBase::make<Dumpstate>();
    StreamArchive(state, [&](int out) { dumpstate->createDumpstateBin(STDERR_FILENO, out); });
}
BENCHMARK(BM_Bundle)->Apply(Sizes);

void BM_BundleByHand(benchmark::State& state) {
    StreamArchive(state, [](int out) {
        const int in = open(kBundleArchive, O_RDONLY | O_CLOEXEC);
        const auto buffer = std::make_unique<char[]>(size_t{64} * 1024);
        for (ssize_t size; (size = read(in, buffer.get(), size_t{64} * 1024)) > 0;) {
            if (write(out, buffer.get(), static_cast<size_t>(size)) != size) break;
        }
        close(in);
    });
}
BENCHMARK(BM_BundleByHand)->Apply(Sizes);

void BM_BundleDd(benchmark::State& state) {
    const std::string input = std::string("if=") + kBundleArchive;
    StreamArchive(state, [&](int out) {
        RunProgram({"/bin/dd", "bs=64k", "status=none", input.c_str()}, out);
    });
}
BENCHMARK(BM_BundleDd)->Apply(Sizes);

void BM_BundleCat(benchmark::State& state) {
    StreamArchive(state, [](int out) { RunProgram({"/bin/cat", kBundleArchive}, out); });
}
BENCHMARK(BM_BundleCat)->Apply(Sizes);

}  // namespace

BENCHMARK_MAIN();
