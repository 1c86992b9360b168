// The service as a process of its own on the simulated wearable: a whole report beside the bare
// runs of its very commands, and beside a shell script that makes the same entries; start on
// demand, idle memory and size beside a service that does next to nothing.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>

#include "memory_file.h"
#include "processes.h"
#include "program.h"
#include "recorded_report.h"
#include "service_client.h"

namespace fs = std::filesystem;

namespace {

// A bus of its own that can start the program as the service. It ends with the wearable. Returns
// its address.
std::string BusThatStarts(const std::string& program) {
    const fs::path folder = "/tmp/bench/" + program;
    const std::string address = "unix:path=" + (folder / "socket").native();
    if (!fs::create_directories(folder)) return address;  // it runs
    std::ofstream(folder / "service.service") << "[D-BUS Service]\nName=" << ServiceClient::kName
                                              << "\nExec=/vendor/bin/hw/" << program << "\n";
    std::ofstream(folder / "bus.conf")
            << "<busconfig><listen>" << address << "</listen><servicedir>" << folder.native()
            << "</servicedir><policy context=\"default\"><allow own=\"*\"/>"
               "<allow send_destination=\"*\"/><allow "
               "receive_sender=\"*\"/></policy></busconfig>\n";
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);  // for the service
    // The one that is run ends when the one it forks takes connections.
    RunProgram(
            {"/usr/bin/dbus-daemon", "--config-file=" + (folder / "bus.conf").native(), "--fork"},
            STDERR_FILENO);
    return address;
}

// Ends the service, so that the next call starts one.
void EndService(ServiceClient& client) {
    kill(client.Pid(), SIGKILL);
    Await([&client] { return !client.IsOnTheBus(ServiceClient::kName); });
}

double ResidentKibibytes(pid_t pid) {
    return KibibytesIn("/proc/" + std::to_string(pid) + "/smaps_rollup", "Rss:");
}

template <typename Step>
double SecondsOf(Step step) {
    const auto start = std::chrono::steady_clock::now();
    step();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Times a whole report that `make` writes to a pipe, with and without the waits that are part of
// it.
template <typename Make>
void WholeReport(benchmark::State& state, double wait_seconds, Make make) {
    for (auto _ : state) {
        const DrainedPipe pipe;
        const double seconds = SecondsOf([&] { make(pipe.fd()); });
        state.SetIterationTime(seconds);
        state.counters["overhead_ns"] = (seconds - wait_seconds) * 1e9;
    }
}

constexpr double kPause = 2;                       // between the two statistics
constexpr timespec kFirstAttempt{0, 250'000'000};  // the wait before it, to reach the hub
constexpr double kWaits = kPause + 0.25;

void BM_Report(benchmark::State& state) {
    static ServiceClient client;
    client.Get<int32_t>("getInterfaceVersion", "i");  // starts it
    WholeReport(state, kWaits, [](int fd) { EXPECT_EQ(client.Board({fd}), ""); });
    state.counters["rss_kib"] = ResidentKibibytes(client.Pid());
}
BENCHMARK(BM_Report)->UseManualTime()->Iterations(1)->Repetitions(5);

void BM_BareReport(benchmark::State& state) {
    static const RecordedReport report;
    WholeReport(state, kWaits, [](int fd) {
        clock_nanosleep(CLOCK_MONOTONIC, 0, &kFirstAttempt, nullptr);
        report.Replay(fd);
    });
}
BENCHMARK(BM_BareReport)->UseManualTime()->Iterations(1)->Repetitions(5);

void BM_ReportScript(benchmark::State& state) {
    static const std::string script = RecordedReport().Script();
    WholeReport(state, kPause, [](int fd) { RunProgram({"/vendor/bin/sh", "-c", script}, fd); });
}
BENCHMARK(BM_ReportScript)->UseManualTime()->Iterations(1)->Repetitions(5);

// Time and, of a service that has been asked for next to nothing, what stays.
void BM_FirstByte(benchmark::State& state, const std::string& program) {
    ServiceClient client(BusThatStarts(program));
    for (auto _ : state) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) std::abort();
        state.SetIterationTime(SecondsOf([&] {
            client.Post({ends[1]});
            pollfd first{ends[0], POLLIN, 0};
            EXPECT_EQ(poll(&first, 1, 10'000), 1);
        }));
        EndService(client);
        close(ends[0]);
        close(ends[1]);
    }
    client.Get<int32_t>("getInterfaceVersion", "i");
    state.counters["rss_kib"] = ResidentKibibytes(client.Pid());
    EndService(client);
    const std::string stripped = "/tmp/bench/stripped";
    RunProgram({"/usr/bin/strip", "-o", stripped, "/vendor/bin/hw/" + program}, STDERR_FILENO);
    state.counters["binary_kib"] = static_cast<double>(fs::file_size(stripped)) / 1024;
}
BENCHMARK_CAPTURE(BM_FirstByte, dumpstate, "dumpstate-service")->UseManualTime();
BENCHMARK_CAPTURE(BM_FirstByte, minimal, "minimal_service")->UseManualTime();

}  // namespace

int main(int argc, char** argv) {
    GTEST_FLAG_SET(throw_on_failure, true);  // nothing after it would measure what it says
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
