// What may go wrong around the service, done to the real one: the report goes on to its last
// section, nothing is left over, and the next report is whole.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <semaphore>
#include <sstream>
#include <thread>

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
        fs::copy("/dev/__properties__", folder_ / "properties", fs::copy_options::recursive);
        StartHub({});
        StartBus();
    }
    ~Wearable() {
        client_.reset();
        // What was started ends with the daemon that it runs.
        kill(std::stoi(ReadFile(folder_ / "pid")), SIGKILL);
        EndChild(bus_, 0);
        EndChild(hub_, SIGTERM);
    }
    Wearable(const Wearable&) = delete;
    Wearable& operator=(const Wearable&) = delete;

    ServiceClient& client() { return *client_; }
    std::string address() const { return "unix:path=" + (folder_ / "bus").native(); }
    fs::path File(const char* name) const { return folder_ / name; }
    std::string Log() const { return ReadFile(folder_ / "log"); }

    void StartHub(const std::vector<std::string>& options) {
        EndChild(hub_, SIGKILL);
        const fs::path socket = folder_ / "socket/chre";
        fs::remove(socket);
        std::vector<std::string> command{"contexthubd", "--socket", socket};
        command.insert(command.end(), options.begin(), options.end());
        hub_ = Spawn(command, folder_ / "hub.log");
        Await([&] { return fs::exists(socket); });
    }
    // What a report now lacks; "" when it is whole.
    std::string ReportLacks() {
        std::string bundle;
        const std::string report = client_->Report(&bundle);
        if (Lines(Titles(report)) != AllTitles())
            return "sections; it has\n" + Lines(Titles(report));
        if (report.find("\n*** Sensor ") == std::string::npos) return "the hub's data";
        if (!bundle.ends_with(std::string(1024, '\0'))) return "the end of the bundle";
        return bundle.size() > 100'000 ? "" : "most of the bundle";
    }

  private:
    void StartBus() {
        // With one arena for all threads, as a limit of memory counts what each holds in reserve.
        const std::string pid = folder_ / "pid";
        std::ostringstream line;
        line << "/usr/bin/bwrap --dev-bind / / --dev /dev"
             << " --symlink " << folder_.native() << "/properties /dev/__properties__"
             << " --bind " << folder_.native() << "/socket /dev/socket"
             << " --size 16777216 --tmpfs /data/vendor/log --setenv MALLOC_ARENA_MAX 1"
             << " --setenv DBUS_SYSTEM_BUS_ADDRESS " << address()
             << " /usr/bin/dbus-daemon --config-file=/vendor/etc/bus/system.conf --nofork"
             << " --nopidfile --print-pid=3 --address=" << address();
        std::istringstream words(line.str());
        std::vector<std::string> command{"/vendor/bin/sh", "-c", "exec \"$@\" 3>>" + pid, "sh"};
        command.insert(command.end(), std::istream_iterator<std::string>(words), {});
        bus_ = Spawn(command, folder_ / "log");
        Await([&] { return ReadFile(pid).ends_with('\n'); });
        client_ = std::make_unique<ServiceClient>(address());
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

std::string HubDies(Wearable& wearable) {
    wearable.StartHub({"--hang-at", "fragment-done"});
    auto report = std::async(std::launch::async, [&] { return ReportWithBundle(wearable); });
    Await([&] {
        return ReadFile(wearable.File("hub.log")).find("hanging at") != std::string::npos;
    });
    wearable.StartHub({});
    return report.get();
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
    fs::rename(wearable.File("properties"), wearable.File("aside"));
    std::string report = ReportWithBundle(wearable);
    fs::rename(wearable.File("aside"), wearable.File("properties"));
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

std::string NobodyReadsReportOrBundle(Wearable& wearable) {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    EXPECT_EQ(wearable.client().Board({ends[1], ends[1]}), "");
    close(ends[1]);
    return "";
}

std::vector<Fault> Faults() {
    std::vector<Fault> faults{
            {"nobody-reads-report-or-bundle", NobodyReadsReportOrBundle, "Failed to write", ""},
            {"no-properties", NoProperties, "getprop: cannot list"},
            {"no-space", NoSpace, "No space left on device"},
            {"callers-leave", CallersLeave, "has left the bus"},
            {"no-descriptor-for-the-call", NoDescriptorForTheCall, "", "", false},
            UnderLimit(
                    "no-process", RLIMIT_NPROC, [](pid_t) { return rlim_t{0}; },
                    "Resource temporarily unavailable"),
            {"hub-dies", HubDies, "Socket disconnected on remote end"},
    };
    if (kSanitized) return faults;
    faults.push_back(UnderLimit(
            "no-descriptor", RLIMIT_NOFILE, [](pid_t pid) { return Descriptors(pid) + 2; },
            "Too many open files", {}, TitlesWithoutADirectory()));
    faults.push_back(UnderLimit("no-memory", RLIMIT_AS, AddressSpace, "Cannot allocate memory", {},
                                TitlesWithoutADirectory()));
    // Enough for the hub's thread, and for the data of those sensors that have little.
    faults.push_back(UnderLimit("no-memory-for-a-buffer", RLIMIT_AS,
                                [](pid_t pid) { return AddressSpace(pid) + (rlim_t{11} << 20); },
                                "no memory for ", {"--records", "2000000"}));
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

TEST(FaultTest, NoFaultCostsMoreThanItsSectionsAndNothingIsLeft) {
    fs::create_directory(kFolder);
    const std::vector<Fault> faults = Faults();  // by a table that is not for every user
    BeAnOrdinaryUser({kFolder});                 // the limits are none for root
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

}  // namespace
