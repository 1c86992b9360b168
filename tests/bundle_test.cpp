// The log bundle's own code against a platform that writes down what it is asked for. Copies,
// packing and removal are only asked for; listing, streaming and waiting are real.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "dumpstate.h"
#include "log_copy.h"
#include "modem_capture.h"
#include "no_threads.h"
#include "processes.h"
#include "recording_platform.h"

// Time passes faster here: whoever asks for a timer gets it after a moment, which may be too early
// to break anything, or never.
static time_t g_timer_seconds = 0;
static timespec g_first_ring = {0, 50'000'000};
int timer_settime(timer_t timer, int flags, const itimerspec* at, itimerspec* old) {
    itimerspec soon = *at;
    g_timer_seconds = soon.it_value.tv_sec;
    if (soon.it_value.tv_sec != 0) soon.it_value = g_first_ring;
    if (soon.it_interval.tv_sec != 0) soon.it_interval = {0, 10'000'000};
    return static_cast<int>(syscall(SYS_timer_settime, timer, flags, &soon, old));
}

namespace aidl::android::hardware::dumpstate {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

constexpr char kStaging[] = "/data/vendor/log/dumpstate/log";
constexpr char kArchive[] = "/data/vendor/log/dumpstate/combined.tar";

void MakeFiles(const fs::path& directory, const Lines& names) {
    fs::remove_all(directory);
    fs::create_directories(directory);
    for (const std::string& name : names) std::ofstream(directory / name) << name;
}

class BundleTest : public testing::Test {
  protected:
    BundleTest() { ThePlatform() = {}; }

    // What a call to createDumpstateBin logs about an archive of the given size.
    static Lines Stream(size_t size, int bundle_fd) {
        ThePlatform() = {};
        fs::create_directories(kStaging);
        std::ofstream(kArchive) << std::string(size, 'a');
        const WithinAMinute end("the end of a bundle");
        ndk::SharedRefBase::make<Dumpstate>()->createDumpstateBin(77, bundle_fd);
        return ThePlatform().logs;
    }
    static Lines Around(const Lines& between) {
        Lines logs{"3 - Going to compress logs\n", "3 - Goind to write dumpstate board binary\n"};
        logs.insert(logs.end(), between.begin(), between.end());
        logs.emplace_back("3 - Goind to remove dumpstate temp folder\n");
        return logs;
    }
    const ProcessCensus census_;
};

// Copies that there is no memory for count like any others.
TEST_F(BundleTest, CopiesTheHighestNamesUpToTheLimit) {
    MakeFiles("/tmp/logs", {"diag_log_1", "diag_log_2", "diag_log_3", "a_diag_log_4", "diag_lo"});
    const struct {
        int limit;
        size_t copied;
    } cases[] = {{2, 2}, {3, 3}, {-1, 3}, {0, 0}, {-2, 0}, {INT32_MIN, 0}, {100, 3}};
    for (const auto& limited : cases) {
        SCOPED_TRACE(limited.limit);
        ThePlatform() = {};
        ThePlatform().on_command = [](const std::string&) { throw std::bad_alloc(); };
        dumpLogs(STDOUT_FILENO, "/tmp/logs", "/to", limited.limit, "diag_log_");
        Lines requests;
        Lines logs;
        for (const int number : {3, 2, 1}) {
            const std::string name = "diag_log_" + std::to_string(number);
            logs.push_back("3 - Found " + name + "\n");
            if (requests.size() < limited.copied) {
                const std::string paths = "/tmp/logs/" + name + " /to/" + name;
                logs.push_back("3 - Copying /tmp/logs/" + name + " to /to/" + name + "\n");
                requests.push_back(
                        "stdout command\tCP LOG\t5\t/vendor/bin/sh\t-c\t/vendor/bin/cp " + paths);
                logs.push_back("6 - " + name + ": std::bad_alloc");
            } else {
                logs.push_back("3 - Skipped " + name + "\n");
            }
        }
        for (const char* name : {"diag_lo", "a_diag_log_4", "..", "."}) {
            logs.push_back("3 - Found " + std::string(name) + "\n");
        }
        EXPECT_EQ(ThePlatform().requests, requests);
        EXPECT_EQ(ThePlatform().logs, logs);
    }
    ThePlatform() = {};
    dumpLogs(STDOUT_FILENO, "/tmp/none", "/to", -1, "");
    EXPECT_TRUE(ThePlatform().logs.empty() && ThePlatform().requests.empty());
}

// The command line is run by the real shell here.
TEST_F(BundleTest, NamesOfAllKindsAreCopiedToThemselvesAndRunNothing) {
    const Lines names = {"x plain-1.2_3",   "x two  blanks ", "x'single'",      "x\"double\"",
                         "x$HOME",          "x`>ran`",        "x$(>ran)",       "x;>ran",
                         "x\nnew\nline",    "x*?[a]",         "x\\back\\slash", "x~ # not & | <>",
                         "x\xc3\xa4\xff\t", "x{a,b}!"};
    MakeFiles("/tmp/from", names);
    MakeFiles("/tmp/to", {});
    dumpLogs(STDOUT_FILENO, "/tmp/from", "/tmp/to", -1, "x");
    ASSERT_EQ(ThePlatform().requests.size(), names.size());
    for (const std::string& request : ThePlatform().requests) {
        const std::string before = "stdout command\tCP LOG\t5\t/vendor/bin/sh\t-c\t";
        std::ofstream script("/tmp/script");
        for (size_t i = before.size(); i < request.size(); ++i) {  // a newline was written as \n
            const bool newline = request.compare(i, 2, "\\n") == 0;
            script << (newline ? '\n' : request[i]);
            i += newline ? 1 : 0;
        }
        script.close();
        EXPECT_EQ(system("cd /tmp && /vendor/bin/sh /tmp/script"), 0) << request;
    }
    for (const std::string& name : names) {
        std::ifstream copy("/tmp/to/" + name);
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(copy), {}), name);
    }
    EXPECT_FALSE(fs::exists("/tmp/ran"));
}

TEST_F(BundleTest, BluetoothAndRamoopsSeries) {
    MakeFiles("/data/vendor/bluetooth", {"btsnoop_hci_vnd_1", "btsnoop_hci_mcu_1"});
    MakeFiles("/data/vendor/ssrdump/coredump", {"coredump_bt_2026", "coredump_bt_chredump_1"});
    MakeFiles("/data/vendor/ramoops_backup", {"console-ramoops-0", "dmesg-ramoops-0"});
    for (int i = 10; i < 21; ++i) {
        std::ofstream("/data/vendor/bluetooth/btsnoop_hci_vnd_" + std::to_string(i));
    }
    const auto service = ndk::SharedRefBase::make<Dumpstate>();
    for (const bool user : {false, true}) {
        ThePlatform() = {};
        ThePlatform().properties["ro.build.type"] = user ? "user" : "userdebug";
        service->dumpBluetooth(77);
        service->dumpRamoops(77);
        Lines told;
        for (const std::string& record : ThePlatform().logs) {
            if (record.find(" Dump ") != std::string::npos) told.push_back(record);
        }
        Lines copied;
        for (const std::string& request : ThePlatform().requests) {
            const size_t to = request.find(std::string(" ") + kStaging + "/");
            if (to != std::string::npos) copied.push_back(request.substr(to + sizeof kStaging + 1));
        }
        if (user) {
            EXPECT_EQ(told, (Lines{"3 - Dump Bluetooth...", "3 - Dump Bluetooth complete"}));
            EXPECT_EQ(copied, Lines{});
            continue;
        }
        EXPECT_EQ(told, (Lines{"3 - Dump Bluetooth...", "3 - Dump Bluetooth VND snoop",
                               "3 - Dump Bluetooth MCU snoop", "3 - Dump Bluetooth coredump",
                               "3 - Dump Bluetooth complete", "3 - Dump RAMOOPS console logs",
                               "3 - Dump RAMOOPS dmesg logs"}));
        ASSERT_EQ(copied.size(), 15U);
        EXPECT_EQ(copied[0], "bluetooth/btsnoop_hci_vnd_20");
        EXPECT_EQ(copied[9], "bluetooth/btsnoop_hci_vnd_11");  // two of twelve are left behind
        copied.erase(copied.begin(), copied.begin() + 10);
        EXPECT_EQ(copied, (Lines{"bluetooth/btsnoop_hci_mcu_1", "bluetooth/coredump_bt_2026",
                                 "bluetooth/coredump_bt_chredump_1", "ramoops/console-ramoops-0",
                                 "ramoops/dmesg-ramoops-0"}));
    }
}

TEST_F(BundleTest, ModemCaptureTakesEveryStepOnEveryPath) {
    MakeFiles("/data/vendor/radio/extended_logs", {"extended_log_1"});
    MakeFiles("/data/vendor/radio/diag_logs/logs", {"diag_log_1", "diag_log_2"});
    for (int path = 0; path < 16; ++path) {
        const auto is = [path](int bit) { return (path >> bit & 1) != 0; };
        std::string conditions = "-";
        for (const int bit : {0, 1, 2, 3}) conditions += (is(bit) ? "ders" : "DERS")[bit];
        SCOPED_TRACE(conditions);
        Lines expected;
        std::ifstream table(TEST_DATA "/modem_capture.tsv");
        for (std::string row; std::getline(table, row);) {
            const size_t tab = row.find('\t');
            if (row.find_first_not_of(conditions) == tab) expected.push_back(row.substr(tab + 1));
        }
        ThePlatform() = {};
        ThePlatform().properties = {
                {"ro.build.type", is(0) ? "userdebug" : "user"},
                {"persist.vendor.sys.modem.diag.mdlog", is(1) ? "true" : "false"},
                {"persist.vendor.sys.modem.diag.mdlog_br_num", "1"},
                {"vendor.sys.modem.diag.mdlog_on", is(2) ? "true" : "false"}};
        if (is(3)) {  // the recorder runs no logger: it reports itself stopped beforehand
            ThePlatform().on_log = [](const std::string& record) {
                if (record.find("Stopping") == std::string::npos) return;
                ThePlatform().properties["vendor.sys.modem.diag.mdlog_on"] = "false";
            };
        }
        ModemCapture capture;
        capture.Start();
        capture.Join();
        EXPECT_EQ(ThePlatform().elsewhere, expected);
        EXPECT_TRUE(ThePlatform().requests.empty());
    }
    EXPECT_EQ(census_.Newcomers(), "");
}

TEST_F(BundleTest, ArchiveIsStreamedInWholeChunks) {
    for (const size_t size :
         {size_t{0}, size_t{1}, size_t{65536}, size_t{65537}, size_t{1000000}}) {
        const int bundle = memfd_create("bundle", MFD_CLOEXEC);
        EXPECT_EQ(Stream(size, bundle), Around({}));
        EXPECT_EQ(lseek(bundle, 0, SEEK_CUR), static_cast<off_t>(size));
        close(bundle);
        EXPECT_EQ(ThePlatform().requests.size(), 3U);  // packed, opened up and removed
    }
    EXPECT_EQ(census_.Newcomers(), "");
}

TEST_F(BundleTest, WhatEndsTheStreamIsLogged) {
    fs::remove_all("/data/vendor/log/dumpstate");
    ThePlatform() = {};
    ndk::SharedRefBase::make<Dumpstate>()->createDumpstateBin(77, 1000);
    EXPECT_EQ(
            ThePlatform().logs,
            Around({"6 - Failed to open '/data/vendor/log/dumpstate/combined.tar': No such file or "
                    "directory"}));
    EXPECT_EQ(ThePlatform().requests.size(), 3U);

    fs::create_directories(kArchive);  // what can be opened, but not read
    ndk::SharedRefBase::make<Dumpstate>()->createDumpstateBin(77, 1000);
    EXPECT_EQ(ThePlatform().logs.at(6),
              "3 - read(/data/vendor/log/dumpstate/combined.tar): Is a directory\n");
    fs::remove_all(kArchive);

    mkfifo(kArchive, 0600);  // what opening might wait for
    ThePlatform() = {};
    {
        const WithinAMinute end("an archive to be opened");
        ndk::SharedRefBase::make<Dumpstate>()->createDumpstateBin(77, 1000);
    }
    EXPECT_EQ(ThePlatform().logs, Around({}));
    fs::remove(kArchive);

    constexpr char kStopped[] = "5 - The bundle is cut here: its reader has stopped for 30 s";
    signal(SIGPIPE, SIG_IGN);  // the service is not ended by it either
    for (const bool reader : {true, false}) {
        for (const int flags : {O_NONBLOCK, 0}) {  // a reader that takes nothing, and none at all
            int ends[2];
            ASSERT_EQ(pipe2(ends, O_CLOEXEC | flags), 0);
            fcntl(ends[1], F_SETPIPE_SZ, 65536);
            const std::string filling(61440, 'f');
            ASSERT_EQ(write(ends[1], filling.data(), filling.size()), 61440);
            if (!reader) close(ends[0]);
            Lines failure{"3 - Failed to write 65536 bytes, actually written: " +
                          std::string(reader ? "4096" : "-1") + "\n"};
            if (reader && flags == 0) failure.emplace_back(kStopped);
            EXPECT_EQ(Stream(70000, ends[1]), Around(failure));
            close(ends[1]);
            if (reader) close(ends[0]);
        }
    }
    // A pipe without any room at all, whose reader has stopped.
    int full[2];
    ASSERT_EQ(pipe2(full, O_CLOEXEC), 0);
    fcntl(full[1], F_SETPIPE_SZ, 65536);
    const std::string filling(65536, 'f');
    ASSERT_EQ(write(full[1], filling.data(), filling.size()), 65536);
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGRTMIN);
    g_first_ring = {0, 1};
    pthread_sigmask(SIG_BLOCK, &alarm, nullptr);  // as who started the process may have done
    EXPECT_EQ(Stream(70000, full[1]),
              Around({"3 - Failed to write 65536 bytes, actually written: -1\n", kStopped}));
    EXPECT_EQ(g_timer_seconds, 31);

    // Another signal than that breaks no write: a reader that only paused gets all.
    g_first_ring = {3600, 0};
    static std::atomic<int> interruptions = 0;
    struct sigaction on_signal {};
    on_signal.sa_handler = [](int) { ++interruptions; };
    sigaction(SIGUSR1, &on_signal, nullptr);
    size_t left = filling.size() + 70000;
    std::thread reader([&, writer = pthread_self()] {
        for (int i = 1; i <= 5; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            pthread_kill(writer, SIGUSR1);
            while (interruptions < i) std::this_thread::yield();  // the last while nothing moves
        }
        char part[4096];
        for (ssize_t got; (got = read(full[0], part, std::min(left, sizeof part))) > 0;) {
            left -= static_cast<size_t>(got);
        }
    });
    EXPECT_EQ(Stream(70000, full[1]), Around({}));
    close(full[1]);
    reader.join();
    EXPECT_EQ(left, 0U);
    g_first_ring = {0, 50'000'000};
    close(full[0]);
    EXPECT_EQ(census_.Newcomers(), "");
}

TEST_F(BundleTest, WithoutAThreadNothingIsCaptured) {
    const NoThreads none;
    ModemCapture capture;
    capture.Start();
    capture.Join();
    EXPECT_EQ(ThePlatform().logs, Lines{"6 - could not create thread for dumpModem\n"});
}

}  // namespace
}  // namespace aidl::android::hardware::dumpstate
