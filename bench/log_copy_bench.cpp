// Rotated logs copied by dumpLogs, beside a bare spawn and wait of the very same commands; and
// beside what a user would pick, one shell's loop: by cp alone, and by a shell of its own for each
// cp, which is how dumpLogs has to run it.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "log_copy.h"
#include "program.h"

namespace fs = std::filesystem;

namespace {

constexpr char kCopies[] = "/dev/shm/copies";

// A directory of that many logs.
std::string Logs(int64_t count) {
    const std::string directory = "/dev/shm/logs." + std::to_string(count);
    if (!fs::create_directory(directory)) return directory;
    const std::string log(4000, 'x');
    for (int64_t i = 0; i < count; ++i) {
        std::array<char, 32> name;
        std::snprintf(name.data(), name.size(), "/log_%05d", static_cast<int>(i));
        std::ofstream(directory + name.data()) << log;
    }
    return directory;
}

template <typename Copy>
void CopyLogs(benchmark::State& state, Copy copy) {
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

void Few(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgName("files")->Arg(10)->Arg(100)->UseRealTime();
}
// The longer it takes, the fewer times have to do.
void Many(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgName("files")->Arg(1000)->UseRealTime()->Iterations(1)->Repetitions(3);
}
void Most(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgName("files")->Arg(10000)->UseRealTime()->Iterations(1)->Repetitions(1);
}

void BM_DumpLogs(benchmark::State& state) {
    CopyLogs(state, [](const std::string& logs, int out) {
        aidl::android::hardware::dumpstate::dumpLogs(out, logs, kCopies, -1, "log_");
    });
}
BENCHMARK(BM_DumpLogs)->Apply(Few);
BENCHMARK(BM_DumpLogs)->Apply(Many);
BENCHMARK(BM_DumpLogs)->Apply(Most);

// The newest first, as dumpLogs takes them.
std::vector<std::string> CopyCommands(const std::string& logs) {
    std::vector<std::string> commands;
    for (const auto& log : fs::directory_iterator(logs)) {
        commands.push_back("/vendor/bin/cp " + log.path().native() + " " + kCopies + "/" +
                           log.path().filename().native());
    }
    std::ranges::sort(commands, std::greater());
    return commands;
}

void BM_BareCopies(benchmark::State& state) {
    const std::vector<std::string> commands = CopyCommands(Logs(state.range(0)));
    CopyLogs(state, [&](const std::string& /*logs*/, int out) {
        for (const std::string& command : commands) {
            RunProgram({"/vendor/bin/sh", "-c", command.c_str()}, out);
        }
    });
}
BENCHMARK(BM_BareCopies)->Apply(Few);
BENCHMARK(BM_BareCopies)->Apply(Many);

void CopyInShellLoop(benchmark::State& state, const std::string& body) {
    CopyLogs(state, [&](const std::string& logs, int out) {
        const std::string script = "for f in " + logs + "/log_*; do " + body + "; done";
        RunProgram({"/vendor/bin/sh", "-c", script.c_str()}, out);
    });
}

void BM_CpInShellLoop(benchmark::State& state) {
    CopyInShellLoop(state, "/vendor/bin/cp $f /dev/shm/copies/${f##*/}");
}
BENCHMARK(BM_CpInShellLoop)->Apply(Few);
BENCHMARK(BM_CpInShellLoop)->Apply(Many);

void BM_ShellAndCpInShellLoop(benchmark::State& state) {
    CopyInShellLoop(state, "/vendor/bin/sh -c \"/vendor/bin/cp $f /dev/shm/copies/${f##*/}\"");
}
BENCHMARK(BM_ShellAndCpInShellLoop)->Apply(Few);

}  // namespace

BENCHMARK_MAIN();
