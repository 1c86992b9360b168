// Properties, the system log and the build type, inside the simulated wearable.

#include <android-base/properties.h>
#include <android/log.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <filesystem>
#include <fstream>
#include <future>
#include <sstream>
#include <thread>

#include "pattern.h"
#include "processes.h"

namespace android::base {
namespace {

using namespace std::chrono_literals;

constexpr char kKey[] = "test.key";

TEST(Properties, WordsAndNumbersAreReadWhole) {
    constexpr int64_t kUnread = -77;
    const struct {
        const char* value;
        int as_bool;  // -1: neither word
        int64_t as_int;
    } cases[] = {{"1", 1, 1},
                 {"y", 1, kUnread},
                 {"yes", 1, kUnread},
                 {"on", 1, kUnread},
                 {"true", 1, kUnread},
                 {"0", 0, 0},
                 {"n", 0, kUnread},
                 {"no", 0, kUnread},
                 {"off", 0, kUnread},
                 {"false", 0, kUnread},
                 {"TRUE", -1, kUnread},
                 {"", -1, kUnread},
                 {"-12", -1, -12},
                 {"+12", -1, 12},
                 {"0x1F", -1, 31},
                 {"-0X10", -1, -16},
                 {"010", -1, 10},
                 {"0x", -1, kUnread},
                 {"1 ", -1, kUnread},
                 {" 1", -1, kUnread},
                 {"1\n", -1, kUnread},
                 {"--1", -1, kUnread},
                 {"0x-1", -1, kUnread},
                 {"12a", -1, kUnread},
                 {"9223372036854775807", -1, INT64_MAX},
                 {"-9223372036854775808", -1, INT64_MIN},
                 {"9223372036854775808", -1, kUnread},
                 {"99999999999999999999", -1, kUnread}};
    for (const auto& one : cases) {
        ASSERT_TRUE(SetProperty(kKey, one.value));
        EXPECT_EQ(GetProperty(kKey, "unset"), *one.value == '\0' ? "unset" : one.value);
        EXPECT_EQ(GetBoolProperty(kKey, false), one.as_bool == 1) << one.value;
        EXPECT_EQ(GetBoolProperty(kKey, true), one.as_bool != 0) << one.value;
        EXPECT_EQ(GetIntProperty<int64_t>(kKey, kUnread), one.as_int) << one.value;
    }
    ASSERT_TRUE(SetProperty(kKey, "2147483648"));
    EXPECT_EQ(GetIntProperty<int>(kKey, 5), 5);
    ASSERT_TRUE(SetProperty(kKey, "-2147483648"));
    EXPECT_EQ(GetIntProperty<int>(kKey, 5), INT_MIN);
    EXPECT_EQ(GetIntProperty<int>(kKey, 5, -10, 10), 5);
}

TEST(Properties, OnlyNamesAreKeysAndReadOnlyOnesAreSetOnce) {
    for (const char* key : {"", ".hidden", "../up", "a/b", "with blank", "line\n"}) {
        EXPECT_FALSE(SetProperty(key, "x")) << key;
        EXPECT_EQ(errno, EINVAL);
        EXPECT_EQ(GetProperty(key, "unset"), "unset");
    }
    const mode_t before = umask(0777);
    EXPECT_TRUE(SetProperty("ro.test.once", "first"));
    umask(before);
    struct stat status {};
    EXPECT_EQ(stat("/dev/__properties__/ro.test.once", &status), 0);
    EXPECT_EQ(status.st_mode, S_IFREG | 0644U);
    EXPECT_FALSE(SetProperty("ro.test.once", "second"));
    EXPECT_EQ(errno, EEXIST);
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{0, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_FALSE(SetProperty("test.none", "x"));
    EXPECT_EQ(errno, EMFILE);
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(GetProperty("ro.test.once", ""), "first");
    // What is no plain file is no property, and holds nobody up.
    mkfifo("/dev/__properties__/test.fifo", 0600);
    EXPECT_EQ(GetProperty("test.fifo", "unset"), "unset");
    unlink("/dev/__properties__/test.fifo");
    std::ofstream("/dev/__properties__/test.huge") << std::string(100'000, 'x');
    EXPECT_EQ(GetProperty("test.huge", "unset"), "unset");
    for (const auto& file : std::filesystem::directory_iterator("/dev/__properties__")) {
        EXPECT_FALSE(file.path().filename().native().starts_with('.')) << file.path();
    }
}

TEST(Properties, ReadersNeverSeeAPartOfAWrite) {
    const std::string values[] = {std::string(3000, 'a'), std::string(5000, 'b')};
    ASSERT_TRUE(SetProperty(kKey, values[0]));
    std::atomic<bool> stop = false;
    std::thread writer([&] {
        for (int i = 0; i < 500; ++i) SetProperty(kKey, values[i % 2]);
        stop = true;
    });
    while (!stop) {
        const std::string value = GetProperty(kKey, "");
        EXPECT_TRUE(value == values[0] || value == values[1]);
    }
    writer.join();
}

TEST(Properties, WaitEndsWithTheValueOrTheTimeout) {
    ASSERT_TRUE(SetProperty(kKey, "no"));
    EXPECT_TRUE(WaitForProperty(kKey, "no", 0ms));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(WaitForProperty(kKey, "yes", 50ms));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 50ms);

    // Written by another hand, without the library.
    std::thread other([] { std::ofstream("/dev/__properties__/test.key") << "yes"; });
    EXPECT_TRUE(WaitForProperty(kKey, "yes"));
    other.join();
    std::thread setter([] { SetProperty(kKey, "done"); });
    EXPECT_TRUE(WaitForProperty(kKey, "done", 1h));
    setter.join();
}

// What is a mount point here is a link that may lead elsewhere in a /dev of the test's own.
TEST(Properties, WaitSeesTheDirectoryReplaced) {
    namespace fs = std::filesystem;
    const fs::path link = "/dev/__properties__";
    const std::string first = "/tmp/first";
    if (!fs::is_symlink(link)) {
        pid_t inside =
                Spawn({"/usr/bin/bwrap", "--dev-bind", "/", "/", "--dev", "/dev", "--symlink",
                       first, link, program_invocation_name, "--gtest_filter=Properties.WaitSees*"},
                      "/tmp/errors", "/tmp/output");
        EXPECT_EQ(EndChild(inside, 0), 0) << ReadFile("/tmp/errors") + ReadFile("/tmp/output");
        return;
    }
    fs::create_directories(first);
    auto waiting = std::async(std::launch::async, [] { return WaitForProperty(kKey, "new", 40s); });
    Await([] {
        return std::ranges::any_of(fs::directory_iterator("/proc/self/fd"), [](const auto& entry) {
            std::error_code gone;
            return fs::read_symlink(entry, gone) == "anon_inode:inotify";
        });
    });
    fs::create_directories("/tmp/second");
    fs::create_symlink("/tmp/second", "/dev/next");
    fs::rename("/dev/next", link);
    ASSERT_TRUE(SetProperty(kKey, "new"));
    EXPECT_EQ(waiting.wait_for(20s), std::future_status::ready);  // before it has looked at its end
}

// A log in the place of standard error, and its records without their stamps.
class Log {
  public:
    Log() : saved_(dup(STDERR_FILENO)) {
        EXPECT_EQ(pipe2(ends_, O_CLOEXEC | O_NONBLOCK), 0);
        fcntl(ends_[1], F_SETPIPE_SZ, 1 << 20);
        dup2(ends_[1], STDERR_FILENO);
    }
    ~Log() {
        dup2(saved_, STDERR_FILENO);
        for (const int fd : {saved_, ends_[0], ends_[1]}) close(fd);
    }
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;

    void Fill() const {
        while (write(ends_[1], "f", 1) == 1) {
        }
    }
    std::string Text() const {
        std::string text;
        char part[4096];
        for (ssize_t size; (size = read(ends_[0], part, sizeof part)) > 0;) {
            text.append(part, static_cast<size_t>(size));
        }
        return text;
    }
    std::vector<std::string> Take() const {
        std::vector<std::string> records;
        std::istringstream lines(Text());
        for (std::string line; std::getline(lines, line);) {
            records.push_back(line.substr(line.find(' ', line.rfind("  ") + 2) + 1));
        }
        return records;
    }

  private:
    const int saved_;
    int ends_[2];
};

TEST(SystemLog, OneRecordOneLine) {
    const Log log;
    __android_log_print(ANDROID_LOG_WARN, "tag", "%s\n\n", "two\nlines");
    __android_log_print(ANDROID_LOG_DEBUG, nullptr, "%s", std::string(5000, 'x').c_str());
    const std::string stamp =
            R"(\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}  )" + std::to_string(getpid()) + R"(  \d+ )";
    EXPECT_TRUE(IsMatch(log.Text(), stamp + R"(W tag: two\\nlines\n)" + stamp +
                                            "D properties_test: x{5000}\n"));
}

TEST(SystemLog, AFloodIsCountedAndAStuckReaderWaitedForOnce) {
    using Records = std::vector<std::string>;
    const Log log;
    const auto tell = [](const char* tag, const std::string& message) {
        errno = EDOM;
        const int told = __android_log_print(ANDROID_LOG_INFO, tag, "%s", message.c_str());
        EXPECT_EQ(errno, EDOM);
        return told;
    };
    // What repeats is told each time: it may be a call each time that is refused.
    for (int i = 0; i < 3; ++i) EXPECT_EQ(tell("hub", "again"), 1);
    EXPECT_EQ(log.Take(), Records(3, "I hub: again"));

    // What is beyond 10,000 at once is left out, but counted, and not what others say.
    size_t told = 0;
    size_t missing = 0;
    const auto count = [&] {
        for (const std::string& record : log.Take()) {
            if (record.starts_with("I hub: ")) ++told;
            if (record.starts_with("W log: ")) missing += std::stoul(record.substr(7));
        }
    };
    for (int i = 0; i < 20'000; ++i) {
        tell("hub", std::to_string(i));
        if (i % 5000 == 0) count();
    }
    EXPECT_EQ(tell("other", "heard"), 1);
    count();
    EXPECT_GE(told, 9'997);
    EXPECT_LT(told, 19'000);
    EXPECT_EQ(told + missing, 20'000);
    EXPECT_EQ(__android_log_print(ANDROID_LOG_ERROR, "hub", "heard"), 1);
    log.Take();

    log.Fill();
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 20; ++i) {
        EXPECT_LT(tell("other", "lost"), 0);
    }
    EXPECT_GE(std::chrono::steady_clock::now() - start, 100ms);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1900ms);
    log.Take();
    EXPECT_EQ(tell("other", "late"), 1);
    EXPECT_EQ(log.Take(), (Records{"W log: 20 records are missing here: the log's reader had "
                                   "stopped, or they were "
                                   "more than anybody reads",
                                   "I other: late"}));
    close(STDERR_FILENO);
    EXPECT_EQ(tell("other", "to nobody"), -EBADF);
}

}  // namespace
}  // namespace android::base
