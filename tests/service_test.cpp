// The service as a process of its own, started on demand by the bus of the simulated wearable in
// which this test runs.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>

#include "expected_report.h"
#include "pattern.h"
#include "processes.h"
#include "service_client.h"

namespace fs = std::filesystem;

namespace {

class ServiceTest : public testing::Test, protected ServiceClient {};

TEST_F(ServiceTest, ReportOfTheWholeBoard) {
    const auto set_verbose = [this](int value) {
        EXPECT_GE(sd_bus_call_method(bus_, kName, "/default", kName, "setVerboseLoggingEnabled",
                                     nullptr, nullptr, "b", value),
                  0);
        EXPECT_EQ(Get<int>("getVerboseLoggingEnabled", "b"), value);
        EXPECT_EQ(ReadFile("/dev/__properties__/persist.vendor.verbose_logging_enabled"),
                  value != 0 ? "true" : "false");
    };
    EXPECT_EQ(Get<int>("getVerboseLoggingEnabled", "b"), 0);
    set_verbose(1);
    const std::string report = Report();
    set_verbose(0);
    EXPECT_TRUE(report.starts_with("verbose logging: enabled\n"));
    EXPECT_EQ(Titles(report), ExpectedTitles(false, false));
    EXPECT_EQ(fs::status("/data/vendor/log/dumpstate").permissions(), fs::perms::owner_all);
    EXPECT_EQ(Matches(report, R"(\n------ \d+\.\d{3}s was the duration of '(.*)' ------(?=\n))"),
              ExpectedTitles(false, false));
    // One supply is missing on purpose; a script's last command decides about the others.
    EXPECT_EQ(Matches(report, R"(\n(\*\*\* (?:cannot|exit|killed|timed).*))"),
              std::vector<std::string>{"*** cannot open /sys/class/power_supply/sw5100_bms/uevent: "
                                       "No such file or directory"});
    for (const char* content :
         {"[ro.build.type]: [userdebug]\n", "CPU0", "Boot: 20", "POWER_SUPPLY_NAME=battery\n",
          "=== device name: ", "bd_", "norvel_charger: No such file or directory"}) {
        EXPECT_NE(report.find(content), std::string::npos) << content;
    }
}

TEST_F(ServiceTest, AnswersOrRefusesAndGoesOn) {
    const int fd = open("/dev/null", O_WRONLY | O_CLOEXEC);
    const std::string invalid = "org.freedesktop.DBus.Error.InvalidArgs: ";
    EXPECT_EQ(Board({fd}, 8), invalid + "Invalid mode");
    EXPECT_EQ(Get<int32_t>("getInterfaceVersion", "i"), 1);
    EXPECT_EQ(Get<std::string>("getInterfaceHash", "s"),
              "d7c8d1b9054ec2fb0510edb68b95ca69fd038719");

    const std::string before = Holdings();
    for (const char* signature : {"", "s", "ahi", "ix"}) {
        sd_bus_message* call = nullptr;
        sd_bus_message_new_method_call(bus_, &call, kName, "/default", kName, "dumpstateBoard");
        if (*signature == 's') sd_bus_message_append(call, "s", "text");
        if (*signature == 'i') sd_bus_message_append(call, "ix", 0, int64_t{0});
        if (*signature == 'a') sd_bus_message_append(call, "ahi", 1, fd, 0);
        EXPECT_TRUE(Send(call).starts_with(invalid)) << signature;
    }
    sd_bus_message* unknown = nullptr;
    sd_bus_message_new_method_call(bus_, &unknown, kName, "/default", kName, "dump");
    EXPECT_TRUE(Send(unknown).starts_with("org.freedesktop.DBus.Error.UnknownMethod: "));
    EXPECT_EQ(Holdings(), before);
    close(fd);
}

// The sorted names of the archive's members.
std::vector<std::string> Members(int bundle) {
    const std::string list = "/tmp/members";
    const std::string command = "exec 3<&" + std::to_string(bundle) +
                                "; /vendor/bin/tar tf /proc/self/fd/3 >" + list + " 2>&1";
    EXPECT_EQ(system(command.c_str()), 0) << ReadFile(list);
    std::vector<std::string> members = Matches(ReadFile(list), "(.+)\n");
    std::ranges::sort(members);
    return members;
}

TEST_F(ServiceTest, BundleHoldsEveryLogAndLeavesNothing) {
    const std::string before = Holdings();
    const ProcessCensus census;
    const fs::path verbose = "/dev/__properties__/persist.vendor.verbose_logging_enabled";
    std::ofstream(verbose) << "true";
    const int report = memfd_create("report", MFD_CLOEXEC);
    const int bundle = memfd_create("bundle", 0);
    EXPECT_EQ(Board({report, bundle}), "");
    std::ofstream(verbose) << "false";

    EXPECT_EQ(Titles(ReadFd(report)), ExpectedTitles(false, true));
    const std::vector<std::string> members = Members(bundle);
    const auto count = [&members](const std::string& beginning) {
        return std::ranges::count_if(
                members, [&](const std::string& name) { return name.starts_with(beginning); });
    };
    const struct {
        const char* beginning;
        long members;
    } expected[] = {{"./extended_log_20261124_0", 100},
                    {"./diag_log_", 10},
                    {"./diag_log_0101.qmdl", 1},  // written when the logger stopped
                    {"./diag_poweron_log.qmdl", 1},
                    {"./diag_trace.txt", 1},
                    {"./modem_efs/", 17},
                    {"./ril_log0", 2},
                    {"./qmi_fw_log", 2},
                    {"./netmgr_log", 2},
                    {"./bluetooth/btsnoop_hci_vnd", 10},
                    {"./bluetooth/btsnoop_hci_mcu", 4},
                    {"./bluetooth/coredump_bt_2", 10},
                    {"./bluetooth/coredump_bt_chredump_", 2},
                    {"./ramoops/console-ramoops-", 10},
                    {"./ramoops/dmesg-ramoops-", 3},
                    {"./mcu/", 4},
                    {"./tz/", 3}};
    for (const auto& series : expected) {
        EXPECT_EQ(count(series.beginning), series.members) << series.beginning;
    }
    close(bundle);
    close(report);
    EXPECT_FALSE(fs::exists("/data/vendor/log/dumpstate"));
    EXPECT_FALSE(fs::exists("/data/vendor/rfs/mpss/modem_efs"));
    EXPECT_EQ(ReadFile("/dev/__properties__/vendor.sys.modem.diag.mdlog"), "true");
    EXPECT_EQ(Holdings(), before);
    EXPECT_EQ(census.Newcomers(), "");
}

// More than the service has descriptors for, were they all held at once.
TEST_F(ServiceTest, CallersInTheQueueTakeNothingFromTheReportBeingServed) {
    Get<int32_t>("getInterfaceVersion", "i");
    const pid_t service = Pid();
    rlimit before{};
    constexpr rlim_t kDescriptors = 24;
    ASSERT_EQ(prlimit(service, RLIMIT_NOFILE, nullptr, &before), 0);
    const rlimit few{kDescriptors, before.rlim_max};
    prlimit(service, RLIMIT_NOFILE, &few, nullptr);
    const int report = memfd_create("report", MFD_CLOEXEC);
    const int bundle = memfd_create("bundle", MFD_CLOEXEC);
    const int unread = open("/dev/null", O_WRONLY | O_CLOEXEC);
    const auto post = [](ServiceClient& caller, int first, int second) {
        caller.Post({first, second});
        caller.IsOnTheBus(kName);  // answered when the bus has passed the call on
    };
    kill(service, SIGSTOP);
    ServiceClient served;
    post(served, report, bundle);
    {
        std::array<ServiceClient, kDescriptors / 2 + 1> others;
        for (ServiceClient& other : others) post(other, unread, unread);
        kill(service, SIGCONT);
        Await([report] { return lseek(report, 0, SEEK_CUR) > 0; });
    }
    EXPECT_EQ(Board({}, 8), "org.freedesktop.DBus.Error.InvalidArgs: Invalid mode");  // the last
    EXPECT_EQ(Titles(ReadFd(report)), ExpectedTitles(false, true));
    EXPECT_GT(lseek(bundle, 0, SEEK_CUR), 100'000);
    for (const int fd : {report, bundle, unread}) close(fd);
    EXPECT_EQ(Pid(), service);
    prlimit(service, RLIMIT_NOFILE, &before, nullptr);
}

// With nothing to remove it: what an older service left open to everybody.
TEST_F(ServiceTest, LeftoversAreNoneOfTheNextBundles) {
    const fs::path folder = "/data/vendor/log/dumpstate";
    fs::create_directories(folder / "log/old");
    fs::permissions(folder, fs::perms::all);
    std::ofstream(folder / "combined.tar") << "stale";
    std::string bundle;
    {
        const SwappedTool none("rm");
        Report(&bundle);
    }
    EXPECT_EQ(bundle.find("old"), std::string::npos);
    EXPECT_EQ(fs::status(folder).permissions(), fs::perms::owner_all);
    EXPECT_FALSE(fs::exists(folder / "log/old"));
    EXPECT_TRUE(fs::exists(folder / "log/mcu"));
    for (const char* told : {"combined.tar' is still there", "bundle is moved aside to '"}) {
        EXPECT_NE(ReadFile("/run/log").find(told), std::string::npos) << told;
    }
    fs::remove_all(folder);
}

// As a careless starter leaves it: children reaped by nobody, no standard input, a standard output
// whose reader is gone, and a limit of files that the bundle is beyond. A bus daemon would ignore
// the signals that end writes for it.
TEST_F(ServiceTest, InheritedStateIsPutRight) {
    Get<int32_t>("getInterfaceVersion", "i");
    const pid_t started = Pid();
    ASSERT_GT(started, 0);
    kill(started, SIGKILL);
    Await([this] { return !IsOnTheBus(kName); });
    constexpr rlim_t kLimit = 1 << 20;
    pid_t service = fork();
    if (service == 0) {
        signal(SIGCHLD, SIG_IGN);
        for (const int ending : {SIGPIPE, SIGXFSZ}) signal(ending, SIG_DFL);
        int gone[2];
        if (pipe2(gone, O_CLOEXEC) != 0) _exit(1);
        dup2(gone[1], STDOUT_FILENO);
        close(STDIN_FILENO);
        const rlimit limit{kLimit, kLimit};
        setrlimit(RLIMIT_FSIZE, &limit);
        setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/run/bus", 1);
        execl("/vendor/bin/hw/dumpstate-service", "dumpstate-service", nullptr);
        _exit(1);
    }
    Await([this] { return IsOnTheBus(kName); });
    EXPECT_EQ(fs::read_symlink("/proc/" + std::to_string(service) + "/fd/0"), "/dev/null");

    const SwappedTool uptime("uptime", "exit 3");
    const int report = memfd_create("report", MFD_CLOEXEC);
    const int bundle = memfd_create("bundle", MFD_CLOEXEC);
    lseek(bundle, kLimit, SEEK_SET);
    EXPECT_EQ(Board({report, bundle}), "");
    EXPECT_EQ(Pid(), service);
    const std::string text = ReadFd(report);
    EXPECT_EQ(Titles(text), ExpectedTitles(false, true));
    EXPECT_NE(text.find("\n*** exit status 3\n"), std::string::npos);
    close(report);
    close(bundle);
    EndChild(service, SIGTERM);
    Await([this] { return !IsOnTheBus(kName); });
}

TEST_F(ServiceTest, FailedRegistrationIsFatal) {
    Get<int32_t>("getInterfaceVersion", "i");  // the name is taken from here on
    for (const auto& [bus, status] :
         {std::pair{"unix:path=/run/bus", -EEXIST}, {"unix:path=/run/none", -ENOENT}}) {
        fs::remove("/tmp/log");
        pid_t pid = Spawn({"env", std::string("DBUS_SYSTEM_BUS_ADDRESS=") + bus,
                           "/vendor/bin/hw/dumpstate-service"},
                          "/tmp/log");
        const int end = EndChild(pid, 0);
        EXPECT_TRUE(WIFSIGNALED(end) && WTERMSIG(end) == SIGABRT);
        const std::string expected =
                R"(^\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}  \d+  \d+ F dumpstate-service: )"
                R"(Check failed: status == STATUS_OK \(status=)" +
                std::to_string(status) + R"(, STATUS_OK=0\) \n)";
        EXPECT_TRUE(HasMatch(ReadFile("/tmp/log"), expected)) << ReadFile("/tmp/log");
    }
}

}  // namespace
