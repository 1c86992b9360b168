// The bundle's archive streamed through a pipe by the service, beside the same calls by hand, and
// beside dd, which takes a process of its own. The commands that pack it and remove it are left
// out: they are other programs' work.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "dumpstate.h"
#include "memory_file.h"
#include "program.h"
#include "staging.h"

namespace {

using aidl::android::hardware::dumpstate::Dumpstate;
using aidl::android::hardware::dumpstate::kBundleArchive;
using aidl::android::hardware::dumpstate::kTemporaryFolder;

void StreamArchive(benchmark::State& state, void (*stream)(int out)) {
    const MemoryFile archive(static_cast<size_t>(state.range(0)) * kMiB);
    std::filesystem::create_directories(kTemporaryFolder);
    std::filesystem::remove(kBundleArchive);
    std::filesystem::create_symlink(archive.path(), kBundleArchive);
    std::ofstream("/proc/self/clear_refs") << 5;  // begins the peak anew
    for (auto _ : state) stream(DrainedPipe().fd());
    state.counters["peak_kib"] = KibibytesIn("/proc/self/status", "VmHWM:");
}

void ByService(int out) {
    static const auto dumpstate = ndk::SharedRefBase::make<Dumpstate>();
    dumpstate->createDumpstateBin(STDERR_FILENO, out);
}

void ByHand(int out) {
    constexpr size_t kChunk = size_t{64} * 1024;
    const int in = open(kBundleArchive, O_RDONLY | O_CLOEXEC);
    const auto buffer = std::make_unique<char[]>(kChunk);
    for (ssize_t size; (size = read(in, buffer.get(), kChunk)) > 0;) {
        if (write(out, buffer.get(), static_cast<size_t>(size)) != size) break;
    }
    close(in);
}

BENCHMARK_CAPTURE(StreamArchive, service, ByService)->Arg(32)->Arg(1024)->UseRealTime();
BENCHMARK_CAPTURE(StreamArchive, by_hand, ByHand)->Arg(32)->Arg(1024)->UseRealTime();

}  // namespace
