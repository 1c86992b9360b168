// The service as a process of its own on the simulated wearable: a whole report beside the bare
// runs of its very commands, and beside a shell script that makes the same entries; start on
// demand, idle memory and size beside a service that does next to nothing.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "files.h"
#include "program.h"
#include "recorded_report.h"

namespace fs = std::filesystem;

namespace {

constexpr char kDumpstate[] = "android.hardware.dumpstate.IDumpstateDevice";
constexpr char kMinimal[] = "bench.Minimal";
constexpr char kMinimalCpp[] = "bench.MinimalCpp";
constexpr char kWearableBus[] = "unix:path=/run/bus";

// A failing step ends the benchmark: nothing after it would measure what it says.
void Must(int result, const char* what) {
    if (result >= 0) return;
    std::fprintf(stderr, "%s: error %d\n", what, result);
    std::exit(EXIT_FAILURE);
}

// A service that the first call starts, through a connection to its bus.
class Service {
  public:
    Service(const char* address, const char* name) : name_(name) {
        Must(sd_bus_new(&bus_), "new connection");
        Must(sd_bus_set_address(bus_, address), "bus address");
        Must(sd_bus_set_bus_client(bus_, 1), "bus client");
        Must(sd_bus_start(bus_), "connection");
    }
    ~Service() { sd_bus_flush_close_unref(bus_); }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    void GetVersion() {
        Must(sd_bus_call_method(bus_, name_, "/default", name_, "getInterfaceVersion", nullptr,
                                nullptr, ""),
             "getInterfaceVersion");
    }
    // Returns when the report has ended.
    void Report(int fd) {
        sd_bus_message* const call = ReportCall(fd);
        Must(sd_bus_call(bus_, call, UINT64_MAX, nullptr, nullptr), "dumpstateBoard");
        sd_bus_message_unref(call);
    }
    // Returns at once.
    void StartReport(int fd) {
        sd_bus_message* const call = ReportCall(fd);
        Must(sd_bus_call_async(bus_, nullptr, call, nullptr, nullptr, 0), "dumpstateBoard");
        Must(sd_bus_flush(bus_), "flush");
        sd_bus_message_unref(call);
    }

    pid_t pid() {
        uint32_t pid = 0;
        AskBus("GetConnectionUnixProcessID", "u", &pid);
        return static_cast<pid_t>(pid);
    }
    // Ends the process, so that the next call starts one.
    void Kill() {
        kill(pid(), SIGKILL);
        for (int owned = 1; owned != 0;) AskBus("NameHasOwner", "b", &owned);
    }

  private:
    sd_bus_message* ReportCall(int fd) {
        sd_bus_message* call = nullptr;
        Must(sd_bus_message_new_method_call(bus_, &call, name_, "/default", name_,
                                            "dumpstateBoard"),
             "new call");
        Must(sd_bus_message_append(call, "ahix", 1, fd, 0, int64_t{0}), "arguments");
        return call;
    }
    void AskBus(const char* method, const char* type, void* answer) {
        sd_bus_message* reply = nullptr;
        Must(sd_bus_call_method(bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                "org.freedesktop.DBus", method, nullptr, &reply, "s", name_),
             method);
        Must(sd_bus_message_read(reply, type, answer), method);
        sd_bus_message_unref(reply);
    }

    sd_bus* bus_ = nullptr;
    const char* const name_;
};

constexpr char kStartingBus[] = "unix:path=/tmp/bench/socket";

// Starts a bus of the benchmark's own that can start each service. It ends with the wearable.
void StartStartingBus() {
    const fs::path directory = "/tmp/bench";
    fs::create_directories(directory);
    const std::pair<std::string, const char*> services[] = {{kDumpstate, "dumpstate-service"},
                                                            {kMinimal, "minimal_service"},
                                                            {kMinimalCpp, "minimal_cpp_service"}};
    for (const auto& [name, program] : services) {
        std::ofstream(directory / (name + ".service"))
                << "[D-BUS Service]\nName=" << name << "\nExec=/vendor/bin/hw/" << program << " "
                << name << "\n";
    }
    const std::string config = directory / "bus.conf";
    std::ofstream(config) << "<busconfig><listen>" << kStartingBus << "</listen><servicedir>"
                          << directory.native()
                          << "</servicedir><policy context=\"default\"><allow own=\"*\"/>"
                             "<allow send_destination=\"*\"/><allow receive_sender=\"*\"/>"
                             "</policy></busconfig>\n";
    setenv("DBUS_SYSTEM_BUS_ADDRESS", kStartingBus, 1);  // for the services
    const std::string argument = "--config-file=" + config;
    // The one that was run ends when the one it forked takes connections.
    RunProgram({"/usr/bin/dbus-daemon", argument.c_str(), "--fork"}, STDERR_FILENO);
}

Service OnStartingBus(const char* name) {
    static std::once_flag started;
    std::call_once(started, StartStartingBus);
    return {kStartingBus, name};
}

double ResidentKibibytes(pid_t pid) {
    std::ifstream rollup("/proc/" + std::to_string(pid) + "/smaps_rollup");
    for (std::string word; rollup >> word;) {
        double size = 0;
        if (word == "Rss:" && rollup >> size) return size;
    }
    return 0;
}

class Stopwatch {
  public:
    double Seconds() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    }

  private:
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// Times a whole report that `make` writes to a pipe, with and without the waits that are part of
// it.
template <typename Make>
void WholeReport(benchmark::State& state, double wait_seconds, Make make) {
    for (auto _ : state) {
        Sink sink(Sink::Kind::kPipe);
        const Stopwatch stopwatch;
        make(sink.fd());
        const double seconds = stopwatch.Seconds();
        state.SetIterationTime(seconds);
        state.counters["overhead_ns"] = (seconds - wait_seconds) * 1e9;
    }
}

// The pause between the two statistics, and the wait before the first attempt to reach the hub.
constexpr double kWaits = 2 + 0.25;

void BM_Report(benchmark::State& state) {
    static Service service(kWearableBus, kDumpstate);
    service.GetVersion();
    WholeReport(state, kWaits, [&](int fd) { service.Report(fd); });
    state.counters["rss_kib"] = ResidentKibibytes(service.pid());
}
BENCHMARK(BM_Report)->UseManualTime()->Iterations(1)->Repetitions(5);

void BM_BareReport(benchmark::State& state) {
    static const RecordedReport report;
    WholeReport(state, kWaits, [](int fd) {
        std::this_thread::sleep_for(std::chrono::duration<double>(kWaits));
        report.Replay(fd);
    });
    state.counters["steps"] = static_cast<double>(report.steps.size());
}
BENCHMARK(BM_BareReport)->UseManualTime()->Iterations(1)->Repetitions(5);

void BM_ReportScript(benchmark::State& state) {
    constexpr double kPause = 2;  // it has no way to reach the hub
    WholeReport(state, kPause, [](int fd) { RunProgram({"/vendor/bin/sh", REPORT_SCRIPT}, fd); });
}
BENCHMARK(BM_ReportScript)->UseManualTime()->Iterations(1)->Repetitions(5);

void BM_FirstByte(benchmark::State& state, const char* name) {
    Service service = OnStartingBus(name);
    for (auto _ : state) {
        int ends[2];
        Must(pipe2(ends, O_CLOEXEC), "pipe");
        const Stopwatch stopwatch;
        service.StartReport(ends[1]);
        pollfd first{ends[0], POLLIN, 0};
        poll(&first, 1, -1);
        state.SetIterationTime(stopwatch.Seconds());
        service.Kill();
        close(ends[0]);
        close(ends[1]);
    }
}
BENCHMARK_CAPTURE(BM_FirstByte, dumpstate, kDumpstate)->UseManualTime();
BENCHMARK_CAPTURE(BM_FirstByte, minimal, kMinimal)->UseManualTime();
BENCHMARK_CAPTURE(BM_FirstByte, minimal_cpp, kMinimalCpp)->UseManualTime();

// What stays of a service that has been started and asked for next to nothing.
void BM_Idle(benchmark::State& state, const char* name, const char* program) {
    Service service = OnStartingBus(name);
    for (auto _ : state) {
        const Stopwatch stopwatch;
        service.GetVersion();
        state.SetIterationTime(stopwatch.Seconds());
        state.counters["rss_kib"] = ResidentKibibytes(service.pid());
        service.Kill();
    }
    state.counters["binary_kib"] =
            static_cast<double>(fs::file_size(fs::path("/vendor/bin/hw") / program)) / 1024;
}
BENCHMARK_CAPTURE(BM_Idle, dumpstate, kDumpstate, "dumpstate-service")->UseManualTime();
BENCHMARK_CAPTURE(BM_Idle, minimal, kMinimal, "minimal_service")->UseManualTime();
BENCHMARK_CAPTURE(BM_Idle, minimal_cpp, kMinimalCpp, "minimal_cpp_service")->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
