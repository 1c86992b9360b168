// What may go wrong around the service, done to the real one: the report goes on to its last
// section, nothing is left over, and the next report is whole.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <semaphore>
#include <sstream>
#include <thread>

extern "C" {  // glibc 2.36 declares it for C only
#include <sys/pidfd.h>
}

#include "expected_report.h"
#include "processes.h"
#include "service_client.h"

namespace fs = std::filesystem;

namespace {

const fs::path kFolder = "/tmp/faults";

// Shown line by line where two differ.
std::string Lines(const std::vector<std::string>& titles) {
    std::string lines;
    for (const std::string& title : titles) lines += title + "\n";
    return lines;
}

const std::string& AllTitles() {
    static const std::string titles = Lines(ExpectedTitles(false, true));
    return titles;
}

// A directory that can't be opened is taken for one that isn't there.
const std::string& TitlesWithoutADirectory() {
    static const std::string titles = [] {
        std::vector<std::string> listed = ExpectedTitles(false, true);
        std::erase(listed, "Sleep Stats");
        return Lines(listed);
    }();
    return titles;
}

// A wearable inside the test's, with a bus, a hub, properties and a place for logs of its own, so
// that all faults can be had side by side.
class Wearable {
  public:
    explicit Wearable(const std::string& name) : folder_(kFolder / name) {
        fs::create_directories(folder_ / "socket");
        fs::copy("/dev/__properties__", folder_ / "rw", fs::copy_options::recursive);
        SetProperty("persist.vendor.verbose_logging_enabled", "false");
        PointProperties("rw");
        StartHub({});
        StartBus();
    }
    ~Wearable() {
        client_.reset();
        EndBus();
        EndChild(hub_, SIGTERM);
    }
    Wearable(const Wearable&) = delete;
    Wearable& operator=(const Wearable&) = delete;

    ServiceClient& client() { return *client_; }
    std::string address() const { return "unix:path=" + (folder_ / "bus").native(); }
    fs::path File(const char* name) const { return folder_ / name; }
    std::string Log() const { return ReadFile(folder_ / "log"); }

    void SetProperty(const char* key, const char* value) const {
        std::ofstream(folder_ / "rw" / key) << value;
    }
    // To "rw", "ro" or a directory that isn't there.
    void PointProperties(const char* directory) const {
        fs::remove(folder_ / "properties");
        fs::create_symlink(directory, folder_ / "properties");
    }
    void StartHub(const std::vector<std::string>& options) {
        EndChild(hub_, SIGKILL);
        const fs::path socket = folder_ / "socket/chre";
        fs::remove(socket);
        std::vector<std::string> command{"contexthubd", "--socket", socket};
        command.insert(command.end(), options.begin(), options.end());
        hub_ = Spawn(command, folder_ / "hub.log");
        Await([&] { return fs::exists(socket); });
    }
    // The service's standard output is the bus daemon's.
    void StartBus(const std::string& output = "/dev/null") {
        // With one arena for all threads, as a limit of memory counts what each holds in reserve.
        const fs::path pid = folder_ / "pid";
        fs::remove(pid);
        std::ostringstream line;
        line << "/usr/bin/bwrap --dev-bind / / --dev /dev"
             << " --symlink " << folder_.native() << "/properties /dev/__properties__"
             << " --bind " << folder_.native() << "/socket /dev/socket"
             << " --ro-bind " << folder_.native() << "/rw " << folder_.native() << "/ro"
             << " --size 16777216 --tmpfs /data/vendor/log --setenv MALLOC_ARENA_MAX 1"
             << " --setenv DBUS_SYSTEM_BUS_ADDRESS " << address()
             << " /usr/bin/dbus-daemon --config-file=/vendor/etc/bus/system.conf --nofork"
             << " --nopidfile --print-pid=3 --address=" << address();
        std::istringstream words(line.str());
        std::vector<std::string> command{"/vendor/bin/sh", "-c", "exec \"$@\" 3>>" + pid.native(),
                                         "sh"};
        command.insert(command.end(), std::istream_iterator<std::string>(words), {});
        bus_ = Spawn(command, folder_ / "log", output);
        Await([&] { return ReadFile(pid).ends_with('\n'); });
        client_ = std::make_unique<ServiceClient>(address());
    }
    // Ends the bus and returns once the service has ended as well.
    void StopBus() {
        const int service = pidfd_open(client_->Pid(), 0);
        EndBus();
        pollfd ended{service, POLLIN, 0};
        EXPECT_EQ(poll(&ended, 1, 60'000), 1);
        close(service);
        fs::remove(folder_ / "bus");
    }

    // What a report now lacks; "" when it is whole.
    std::string ReportLacks() {
        std::string bundle;
        const std::string report = client_->Report(&bundle);
        if (Lines(Titles(report)) != AllTitles())
            return "sections; it has\n" + Lines(Titles(report));
        if (report.find("\n*** Sensor ") == std::string::npos) return "the hub's data";
        return BundleLacks(bundle);
    }
    static std::string BundleLacks(const std::string& bundle) {
        if (!bundle.ends_with(std::string(1024, '\0'))) return "the end of the bundle";
        return bundle.size() > 100'000 ? "" : "most of the bundle";
    }

  private:
    // What was started ends with the daemon that it runs.
    void EndBus() {
        kill(std::stoi(ReadFile(folder_ / "pid")), SIGKILL);
        EndChild(bus_, 0);
    }

    const fs::path folder_;
    pid_t hub_ = -1;
    pid_t bus_ = -1;
    std::unique_ptr<ServiceClient> client_;
};

// A lower limit for the running service, as long as this lives.
class Limit {
  public:
    Limit(pid_t pid, __rlimit_resource resource, rlim_t most) : pid_(pid), resource_(resource) {
        prlimit(pid_, resource_, nullptr, &before_);
        const rlimit lower{most, before_.rlim_max};
        EXPECT_EQ(prlimit(pid_, resource_, &lower, nullptr), 0);
    }
    ~Limit() { prlimit(pid_, resource_, &before_, nullptr); }
    Limit(const Limit&) = delete;
    Limit& operator=(const Limit&) = delete;

  private:
    const pid_t pid_;
    const __rlimit_resource resource_;
    rlimit before_{};
};

rlim_t AddressSpace(pid_t pid) {
    std::istringstream statm(ReadFile("/proc/" + std::to_string(pid) + "/statm"));
    rlim_t pages = 0;
    statm >> pages;
    return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

// Descriptors are given out from the lowest on.
rlim_t Descriptors(pid_t pid) {
    const fs::directory_iterator open("/proc/" + std::to_string(pid) + "/fd");
    return static_cast<rlim_t>(std::distance(begin(open), end(open)));
}

std::string ReportWithBundle(Wearable& wearable) {
    std::string bundle;
    return wearable.client().Report(&bundle);
}

struct Fault {
    std::string name;
    // Makes the fault, a report under it, and an end of the fault. Returns the report.
    std::function<std::string(Wearable&)> strike;
    std::string evidence;              // of the fault, in the report or the log
    std::string titles = AllTitles();  // whichever come where empty
    bool service_survives = true;
};

Fault HubDiesAt(const std::string& message) {
    const auto strike = [message](Wearable& wearable) {
        wearable.StartHub({"--hang-at", message});
        auto report = std::async(std::launch::async, [&] { return ReportWithBundle(wearable); });
        Await([&] {
            return ReadFile(wearable.File("hub.log")).find("hanging at") != std::string::npos;
        });
        wearable.StartHub({});
        return report.get();
    };
    return {"hub-dies-at-" + message, strike, "Socket disconnected on remote end"};
}

Fault UnderLimit(const char* name, __rlimit_resource resource, rlim_t (*most)(pid_t),
                 const char* evidence, const std::vector<std::string>& hub = {},
                 const std::string& titles = AllTitles()) {
    const auto strike = [=](Wearable& wearable) {
        wearable.StartHub(hub);
        const pid_t pid = wearable.client().Pid();
        std::string report;
        {
            const Limit limit(pid, resource, most(pid));
            report = ReportWithBundle(wearable);
        }
        wearable.StartHub({});
        return report;
    };
    return {name, strike, evidence, titles};
}

std::string NoSpace(Wearable& wearable) {
    const std::string root = "/proc/" + std::to_string(wearable.client().Pid()) + "/root";
    const std::string filling = root + "/data/vendor/log/filling";
    const int fd = open(filling.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    EXPECT_GE(fd, 0);
    const std::string page(4096, 'f');
    while (write(fd, page.data(), page.size()) > 0) {
    }
    EXPECT_EQ(errno, ENOSPC);
    close(fd);
    std::string report = ReportWithBundle(wearable);
    EXPECT_FALSE(fs::exists(root + "/data/vendor/log/dumpstate"));
    fs::remove(filling);
    return report;
}

std::string NoProperties(Wearable& wearable) {
    wearable.PointProperties("none");
    std::string report = ReportWithBundle(wearable);
    wearable.PointProperties("rw");
    return report;
}

// The modem's logger is to be stopped, which nobody can tell it.
std::string ReadOnlyProperties(Wearable& wearable) {
    wearable.SetProperty("persist.vendor.verbose_logging_enabled", "true");
    wearable.PointProperties("ro");
    std::string report = ReportWithBundle(wearable);
    wearable.PointProperties("rw");
    wearable.SetProperty("persist.vendor.verbose_logging_enabled", "false");
    return report;
}

// The call's own descriptors can't be taken.
std::string NoDescriptorForTheCall(Wearable& wearable) {
    const pid_t pid = wearable.client().Pid();
    const Limit limit(pid, RLIMIT_NOFILE, Descriptors(pid));
    return wearable.client().Board({STDOUT_FILENO, STDOUT_FILENO});
}

// Their calls wait behind another's, and none of them is left when it is their turn.
std::string CallersLeave(Wearable& wearable) {
    const pid_t service = wearable.client().Pid();
    kill(service, SIGSTOP);
    const int report = memfd_create("report", MFD_CLOEXEC);
    for (int i = 0; i < 5; ++i) {
        std::string name;
        {
            ServiceClient caller(wearable.address());
            name = caller.Name();
            caller.Post({report});
        }
        Await([&] { return !wearable.client().IsOnTheBus(name); });
    }
    kill(service, SIGCONT);
    std::string honest = ReportWithBundle(wearable);
    EXPECT_EQ(lseek(report, 0, SEEK_END), 0);
    close(report);
    return honest;
}

int ToNobody() {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    return ends[1];
}

int ToAFullDisk() {
    return open("/dev/full", O_WRONLY | O_CLOEXEC);
}

// The report and the bundle.
Fault BothGo(const char* name, int (*to)()) {
    const auto strike = [=](Wearable& wearable) {
        const int end = to();
        EXPECT_EQ(wearable.client().Board({end, end}), "");
        close(end);
        return "";
    };
    return {name, strike, "Failed to write", ""};
}

// However small the pipe was, an ordinary report fits in.
std::string NobodyReadsTheReportYet(Wearable& wearable) {
    int report[2];
    EXPECT_EQ(pipe2(report, O_CLOEXEC), 0);
    fcntl(report[1], F_SETPIPE_SZ, 4096);
    const int bundle = memfd_create("bundle", MFD_CLOEXEC);
    EXPECT_EQ(wearable.client().Board({report[1], bundle}), "");
    EXPECT_EQ(Wearable::BundleLacks(ReadFile("/proc/self/fd/" + std::to_string(bundle))), "");
    close(report[1]);
    close(bundle);
    std::string text = ReadFile("/proc/self/fd/" + std::to_string(report[0]));
    close(report[0]);
    return text;
}

// Nor may what is not for the report at all cost more than one wait.
constexpr std::chrono::seconds kMuchTooLong{60};

std::string NobodyReadsStandardOutput(Wearable& wearable) {
    const std::string output = wearable.File("output");
    EXPECT_EQ(mkfifo(output.c_str(), 0600), 0);
    const int full = open(output.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    fcntl(full, F_SETPIPE_SZ, 1 << 20);
    const std::string page(4096, 'f');
    while (write(full, page.data(), page.size()) > 0) {
    }
    wearable.StopBus();
    wearable.StartBus(output);
    const auto start = std::chrono::steady_clock::now();
    std::string report = ReportWithBundle(wearable);
    EXPECT_LT(std::chrono::steady_clock::now() - start, kMuchTooLong);
    close(full);
    return report;
}

std::vector<Fault> Faults() {
    const std::string some;
    std::vector<Fault> faults{
            {"nobody-reads-the-report-yet", NobodyReadsTheReportYet, "Modem SSR history"},
            {"nobody-reads-standard-output", NobodyReadsStandardOutput, "its reader has stopped",
             AllTitles(), false},
            BothGo("both-to-nobody", ToNobody),
            BothGo("both-to-a-full-disk", ToAFullDisk),
            {"read-only-properties", ReadOnlyProperties, "Waited mdlog timeout"},
            {"no-properties", NoProperties, "getprop: cannot list"},
            {"no-space", NoSpace, "No space left on device"},
            {"callers-leave", CallersLeave, "has left the bus"},
            {"no-descriptor-for-the-call", NoDescriptorForTheCall, "", some, false},
            UnderLimit(
                    "no-process", RLIMIT_NPROC, [](pid_t) { return rlim_t{0}; },
                    "Resource temporarily unavailable"),
    };
    if (!kSanitized) {
        faults.push_back(UnderLimit(
                "no-descriptor", RLIMIT_NOFILE, [](pid_t pid) { return Descriptors(pid) + 2; },
                "Too many open files", {}, TitlesWithoutADirectory()));
    }
    for (const char* message : {"list-request", "snapshot-reply", "fragment-done"}) {
        faults.push_back(HubDiesAt(message));
    }
    return faults;
}

void Suffer(const Fault& fault) {
    SCOPED_TRACE(fault.name);
    Wearable wearable(fault.name);
#if defined(__SANITIZE_THREAD__)  // a process gets one thread more with its first
    EXPECT_EQ(wearable.ReportLacks(), "");
#endif
    const std::string before = wearable.client().Holdings();
    const std::string report = fault.strike(wearable);
    if (!fault.titles.empty()) {
        EXPECT_EQ(Lines(Titles(report)), fault.titles);
    }
    EXPECT_NE((report + wearable.Log()).find(fault.evidence), std::string::npos);
    EXPECT_EQ(wearable.ReportLacks(), "");
    if (fault.service_survives) {
        EXPECT_EQ(wearable.client().Holdings(), before);
    }
}

void SufferAll(const std::vector<Fault>& faults) {
    fs::create_directory(kFolder);
    BeAnOrdinaryUser({kFolder});  // the limits are none for root
    const ProcessCensus census;
    {
        // As many as two processors serve within the time-outs of a report.
        std::counting_semaphore<> free(8);
        std::vector<std::future<void>> sufferers;
        for (const Fault& fault : faults) {
            free.acquire();
            sufferers.push_back(std::async(std::launch::async, [&free, &fault] {
                Suffer(fault);
                free.release();
            }));
        }
    }
    EXPECT_EQ(census.Newcomers(), "");
}

// The faults are listed before: by a table that is not for every user.
TEST(FaultTest, NoFaultCostsMoreThanItsSectionsAndNothingIsLeft) {
    SufferAll(Faults());
}

std::vector<Fault> MemoryFaults() {
    return {UnderLimit("no-memory", RLIMIT_AS, AddressSpace, "Cannot allocate memory", {},
                       TitlesWithoutADirectory()),
            // Enough for the hub's thread, and for the data of those sensors that have little.
            UnderLimit("no-memory-for-a-buffer", RLIMIT_AS,
                       [](pid_t pid) { return AddressSpace(pid) + (rlim_t{11} << 20); },
                       "no memory for ", {"--records", "2000000"})};
}

TEST(FaultTest, NorDoesALackOfMemory) {
    if (kSanitized) GTEST_SKIP() << "the sanitizer needs all the memory there is";
    SufferAll(MemoryFaults());
}

}  // namespace
