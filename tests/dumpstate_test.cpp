// The service's own code against a platform that writes down what it is asked for.

#include "dumpstate.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <thread>

#include "expected_report.h"
#include "inherited_state.h"
#include "processes.h"
#include "recording_platform.h"

namespace aidl::android::hardware::dumpstate {
namespace {

using Mode = IDumpstateDevice::DumpstateMode;

class DumpstateTest : public testing::Test {
  protected:
    DumpstateTest() { ThePlatform() = {}; }

    ndk::ScopedAStatus Call(const std::vector<int>& values, int mode = 0) {
        std::vector<ndk::ScopedFileDescriptor> fds;
        for (const int value : values) fds.emplace_back(value);
        auto status = service_->dumpstateBoard(fds, static_cast<Mode>(mode), 0);
        for (ndk::ScopedFileDescriptor& fd : fds) static_cast<void>(fd.release());
        return status;
    }

    // Whether the modem's logs have been captured, to the end.
    static bool Captured() {
        return std::ranges::count(ThePlatform().logs, "3 - dumpModemThread finished\n") == 1;
    }

    // Without those that copy logs for a bundle.
    static std::vector<std::string> ReportRequests() {
        std::vector<std::string> requests = ThePlatform().requests;
        std::erase_if(requests, [](const auto& one) { return one.starts_with("stdout "); });
        return requests;
    }

    const std::shared_ptr<Dumpstate> service_ = ndk::SharedRefBase::make<Dumpstate>();
    const ndk::ScopedFileDescriptor report_{memfd_create("report", MFD_CLOEXEC)};
    const ndk::ScopedFileDescriptor bundle_{memfd_create("bundle", MFD_CLOEXEC)};
};

TEST_F(DumpstateTest, EveryEntryInItsOrderWithItsGuardAndTimeout) {
    for (const char* type : {"userdebug", "user", ""}) {
        for (const bool bundle : {false, true}) {
            SCOPED_TRACE(std::string(type) + (bundle ? " with bundle" : ""));
            ThePlatform() = {};
            ThePlatform().properties = {{"ro.build.type", type},
                                        {"ro.vendor.touch.dump_path", "/touch/from/property"}};
            std::vector<int> fds{report_.get()};
            if (bundle) fds.push_back(bundle_.get());
            EXPECT_TRUE(Call(fds).isOk());
            EXPECT_EQ(ReportRequests(), ExpectedRequests(std::string(type) == "user", bundle));
            for (const int fd : ThePlatform().descriptors) EXPECT_EQ(fd, report_.get());
        }
    }
}

TEST_F(DumpstateTest, SleepStatisticsNeedTheirDirectoryAndTouchNoProperty) {
    const std::filesystem::path stats = "/d/qcom_sleep_stats";
    std::filesystem::rename(stats, "/d/hidden");
    EXPECT_TRUE(Call({report_.get()}).isOk());
    std::filesystem::rename("/d/hidden", stats);

    std::vector<std::string> expected = ExpectedRequests(false, false);
    std::erase_if(expected, [](const std::string& request) {
        return request.starts_with("command\tSleep Stats\t");
    });
    std::ranges::replace(expected, "file\tTouch Stats\t-\t/touch/from/property",
                         "file\tTouch Stats\t-\t");
    EXPECT_EQ(ReportRequests(), expected);
}

// No memory for any question: what users keep to themselves is left out, and nothing else.
TEST_F(DumpstateTest, WhatCannotBeAskedCostsItselfOnly) {
    ThePlatform().on_property = [](const std::string& key, bool) {
        if (key != "dumpstate.last_id") throw std::bad_alloc();
    };
    EXPECT_TRUE(Call({report_.get(), bundle_.get()}).isOk());
    std::vector<std::string> expected = ExpectedRequests(true, true);
    std::erase(expected, "file\tTouch Stats\t-\t/touch/from/property");
    EXPECT_EQ(ReportRequests(), expected);
    EXPECT_TRUE(ReadFd(report_.get()).starts_with("verbose logging: disabled\n"));
    for (const char* record : {"6 - touch: std::bad_alloc", "3 - Dump Bluetooth complete"}) {
        EXPECT_EQ(std::ranges::count(ThePlatform().logs, record), 1) << record;
    }
    EXPECT_TRUE(service_->setVerboseLoggingEnabled(true).isOk());
}

// A second descriptor that is none is no bundle, but the staging directory is made all the same.
// What is left in that is out of a bundle's way.
TEST_F(DumpstateTest, UnusableSecondDescriptorMakesNoBundle) {
    namespace fs = std::filesystem;
    const fs::path folder = "/data/vendor/log/dumpstate";
    fs::create_directories(folder / "log/old");
    ThePlatform().properties = {{"persist.vendor.verbose_logging_enabled", "true"},
                                {"ro.vendor.touch.dump_path", "/touch/from/property"}};
    std::vector<std::string> expected = ExpectedRequests(false, false);
    const auto all = ExpectedRequests(false, true);
    expected.insert(expected.begin(), all.begin(), all.begin() + 2);
    for (const int second : {-1, 0}) {
        ThePlatform().requests.clear();
        EXPECT_TRUE(Call({report_.get(), second}).isOk());
        EXPECT_EQ(ReportRequests(), expected);
        EXPECT_FALSE(Captured());
        EXPECT_TRUE(fs::exists(folder / "log/old"));
    }
    for (const int left : {1, 0}) {
        ThePlatform().logs.clear();
        EXPECT_TRUE(Call({report_.get(), bundle_.get()}).isOk());
        EXPECT_TRUE(fs::is_empty(folder / "log"));
        EXPECT_EQ(std::ranges::count_if(ThePlatform().logs,
                                        [](const std::string& record) {
                                            return record.find("is moved aside") != record.npos;
                                        }),
                  left);
    }
    fs::remove_all(folder);
}

// The first line shows what was set when the report began; the modem's logs are captured if it is
// set once the staging directory is there.
TEST_F(DumpstateTest, VerboseSettingIsReadTwice) {
    static std::atomic<bool> copied = false;
    static constexpr char kVerbose[] = "persist.vendor.verbose_logging_enabled";
    for (const char* first : {"false", "true"}) {
        ThePlatform() = {};
        ThePlatform().properties[kVerbose] = first;
        copied = false;
        ThePlatform().on_command = [](const std::string& title) {
            std::string& value = ThePlatform().properties[kVerbose];
            if (title == "MKDIR DUMPSTATE BIN DIR" && ThePlatform().requests.size() == 2) {
                value = value == "true" ? "false" : "true";
            }
            if (title == "CP TZ LOG") copied = true;
            if (title == "TAR LOG") {  // the capture has ended before
                EXPECT_EQ(Captured(), value == "true");
            }
        };
        // The capture takes longer than all that the report does meanwhile.
        ThePlatform().on_log = [](const std::string& record) {
            if (record != "3 - dumpModemThread finished\n") return;
            while (!copied) std::this_thread::yield();
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        };
        EXPECT_TRUE(Call({report_.get(), bundle_.get()}).isOk());
    }
    const std::string text = ReadFd(report_.get());
    EXPECT_TRUE(text.starts_with("verbose logging: disabled\n"));
    EXPECT_NE(text.find("\nverbose logging: enabled\n"), std::string::npos);
}

TEST_F(DumpstateTest, RefusesBadArgumentsInOrderAndTouchesNothing) {
    struct Case {
        std::vector<int> fds;
        int mode;
        const char* message;
        std::vector<std::string> logs;
    };
    const Case cases[] = {
            {{}, 8, "Invalid mode", {"6 - Invalid mode: 8\n"}},
            {{report_.get()}, -1, "Invalid mode", {"6 - Invalid mode: -1\n"}},
            {{report_.get()}, INT32_MIN, "Invalid mode", {"6 - Invalid mode: -2147483648\n"}},
            {{}, 7, "No file descriptor", {}},
            {{-1, report_.get()}, 0, "Invalid file descriptor", {}},
    };
    for (const Case& refused : cases) {
        SCOPED_TRACE(refused.message);
        ThePlatform() = {};
        const auto status = Call(refused.fds, refused.mode);
        EXPECT_EQ(status.getExceptionCode(), EX_ILLEGAL_ARGUMENT);
        EXPECT_STREQ(status.getMessage(), refused.message);
        EXPECT_EQ(ThePlatform().logs, refused.logs);
        EXPECT_TRUE(ThePlatform().requests.empty());
    }
    EXPECT_EQ(ReadFd(report_.get()), "");
    for (const int mode : {0, 7}) EXPECT_TRUE(Call({report_.get(), -1}, mode).isOk());
    EXPECT_TRUE(Call({0}).isOk());
}

// Nobody reads yet, and however small the pipe was, an ordinary report fits in.
TEST_F(DumpstateTest, APipeIsMadeAsLargeAsItMayBe) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    fcntl(ends[1], F_SETPIPE_SZ, 4096);
    EXPECT_TRUE(Call({ends[1]}).isOk());
    EXPECT_EQ(fcntl(ends[1], F_GETPIPE_SZ), 1 << 20);
    for (const int end : ends) close(end);
}

TEST_F(DumpstateTest, BinderIsOneAsLongAsItLivesAndDumpsNothing) {
    ndk::SpAIBinder first = service_->asBinder();
    EXPECT_EQ(service_->asBinder().get(), first.get());
    EXPECT_EQ(service_->dump(report_.get(), nullptr, 0), STATUS_OK);
    EXPECT_EQ(service_->handleShellCommand(0, 1, 2, nullptr, 0), STATUS_OK);
    EXPECT_FALSE(service_->isRemote());
    EXPECT_EQ(ReadFd(report_.get()), "");
    first = {};
    EXPECT_NE(service_->asBinder().get(), nullptr);
    EXPECT_EQ(service_.use_count(), 1);  // a binder that is gone has let its object go
}

// The signal that ends a program which sends it to itself, if one does. The program is started the
// way that takes back nothing of what this process does about signals.
int EndOfWhoSends(const std::string& signal) {
    std::string script = "kill -" + signal + " $$";
    std::string shell = "sh";
    std::string option = "-c";
    char* const argv[] = {shell.data(), option.data(), script.data(), nullptr};
    pid_t pid = -1;
    int status = 0;
    if (posix_spawn(&pid, "/vendor/bin/sh", nullptr, nullptr, argv, environ) != 0) return -1;
    if (waitpid(pid, &status, 0) != pid) return -1;
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

// What of the service's start has not taken effect, in a process whose parent ignores signals.
const char* MissingAtStart() {
    for (const int ignored : {SIGPIPE, SIGXFSZ, SIGCHLD}) signal(ignored, SIG_IGN);
    resetInheritedState();
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0 || close(ends[0]) != 0) return "a pipe";
    if (write(ends[1], "x", 1) != -1 || errno != EPIPE) return "a write without a reader fails";
    const int file = memfd_create("file", MFD_CLOEXEC);
    rlimit before;
    if (getrlimit(RLIMIT_FSIZE, &before) != 0) return "a limit";
    const rlimit one_byte{1, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &one_byte);
    const bool failed = pwrite(file, "x", 1, 1) == -1 && errno == EFBIG;
    setrlimit(RLIMIT_FSIZE, &before);
    if (!failed) return "a write beyond a file's limit fails";
    if (EndOfWhoSends("PIPE") != SIGPIPE) return "SIGPIPE ends programs";
    if (EndOfWhoSends("XFSZ") != SIGXFSZ) return "SIGXFSZ ends programs";
    return "";
}

TEST(InheritedStateTest, FailedWritesEndProgramsAndNotTheService) {
    EXPECT_EXIT(
            {
                const std::string missing = MissingAtStart();
                std::fputs(missing.c_str(), stderr);
                std::_Exit(missing.empty() ? 0 : 1);
            },
            testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace aidl::android::hardware::dumpstate
