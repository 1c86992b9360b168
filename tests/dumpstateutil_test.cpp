// The report's primitives with real programs, files and readers, inside the simulated wearable.

#include <DumpstateUtil.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <semaphore>
#include <string_view>
#include <thread>
#include <utility>

#include "no_threads.h"
#include "own_time.h"
#include "pattern.h"
#include "processes.h"

namespace {

// A file system that doesn't answer before it is told to.
constexpr char kDead[] = "/tmp/files/dead";
std::binary_semaphore g_answer{0};

// Set while no program seems to end, as if a driver held it.
std::atomic<bool> g_held = false;

// A program that is in a file which doesn't answer either.
constexpr char kHung[] = "/tmp/files/hung";

// What a command does that is this program, and is told to: it leaves its group for its parent's.
[[maybe_unused]] const bool g_leaves = [] {
    if (std::getenv("LEAVE") == nullptr) return false;
    setpgid(0, getpgid(getppid()));
    for (;;) pause();
}();

// A file whose driver is a terminal without its other end.
constexpr char kFailing[] = "/tmp/files/failing";
int g_failing = -1;

int Open(int (*real)(const char*, int, ...), const char* path, int flags, va_list mode) {
    if (std::string_view(path) == kDead) {
        g_answer.acquire();
        path = "/dev/zero";  // which goes on where nobody waits any more
    }
    if (std::string_view(path) == kFailing) return std::exchange(g_failing, -1);
    return real(path, flags, (flags & O_CREAT) != 0 ? va_arg(mode, mode_t) : 0);
}

}  // namespace

extern "C" {
int __real_open(const char*, int, ...);
int __real_open64(const char*, int, ...);  // what 32-bit userlands call
int __real_waitid(idtype_t, id_t, siginfo_t*, int);
int __real_posix_spawn(pid_t*, const char*, const posix_spawn_file_actions_t*,
                       const posix_spawnattr_t*, char* const[], char* const[]);

int __wrap_open(const char* path, int flags, ...) {
    va_list mode;
    va_start(mode, flags);
    const int fd = Open(__real_open, path, flags, mode);
    va_end(mode);
    return fd;
}
int __wrap_open64(const char* path, int flags, ...) {
    va_list mode;
    va_start(mode, flags);
    const int fd = Open(__real_open64, path, flags, mode);
    va_end(mode);
    return fd;
}
int __wrap_waitid(idtype_t type, id_t id, siginfo_t* info, int options) {
    return g_held ? 0 : __real_waitid(type, id, info, options);
}
int __wrap_posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                       const posix_spawnattr_t* attributes, char* const argv[],
                       char* const environment[]) {
    if (std::string_view(path) == kHung) g_answer.acquire();
    return __real_posix_spawn(pid, path, actions, attributes, argv, environment);
}
}

namespace android::os::dumpstate {
namespace {

using std::chrono::steady_clock;
using namespace std::chrono_literals;

// The report with a T for each duration, the one thing in it that varies. A regular expression
// would take a minute for megabytes.
std::string Timeless(std::string report) {
    for (size_t end = 0; (end = report.find("s was the duration", end)) != std::string::npos;) {
        const size_t begin = std::min(report.rfind("------ ", end), end);
        if (IsMatch(report.substr(begin, end - begin), R"(------ \d+\.\d{3})")) {
            report.replace(begin, end + 1 - begin, "------ T");
            end = begin;
        }
        ++end;
    }
    return report;
}

std::vector<std::string> Shell(const std::string& script) {
    return {"/vendor/bin/sh", "-c", script};
}

class PrimitivesTest : public testing::Test {
  protected:
    PrimitivesTest() : report_(memfd_create("report", MFD_CLOEXEC)) {
        std::filesystem::create_directory("/tmp/files");
    }
    ~PrimitivesTest() override {
        close(report_);
        std::filesystem::remove_all("/tmp/files");
    }

    std::string Run(const std::vector<std::string>& command, int64_t timeout = 10) {
        EXPECT_EQ(ftruncate(report_, 0), 0);
        lseek(report_, 0, SEEK_SET);
        RunCommandToFd(report_, "T", command, CommandOptions::WithTimeout(timeout).Build());
        return Timeless(ReadFd(report_));
    }
    std::string Dump(const std::string& path) {
        EXPECT_EQ(ftruncate(report_, 0), 0);
        lseek(report_, 0, SEEK_SET);
        DumpFileToFd(report_, "T", path);
        return Timeless(ReadFd(report_));
    }
    static std::string File(const std::string& name, const std::string& content) {
        const std::string path = "/tmp/files/" + name;
        std::ofstream(path) << content;
        return path;
    }

    static constexpr char kFooter[] = "------ T was the duration of 'T' ------\n";
    const int report_;
    const ProcessCensus census_;
};

TEST_F(PrimitivesTest, CommandFormatAndEveryOutcome) {
    struct Case {
        std::vector<std::string> command;
        std::string header;
        std::string body;
    };
    const Case cases[] = {
            {{"/vendor/bin/echo", "a b", ""}, "/vendor/bin/echo a b ", "a b \n\n"},
            {Shell("echo out; echo err >&2"), "/vendor/bin/sh -c echo out; echo err >&2",
             "out\nerr\n\n"},
            {Shell("printf 'no\\nline\x01'"), R"(/vendor/bin/sh -c printf 'no\nline\x01')",
             "no\nline\x01\n"},
            {Shell("exit 7"), "/vendor/bin/sh -c exit 7", "\n*** exit status 7\n"},
            {Shell("kill -9 $$"), "/vendor/bin/sh -c kill -9 $$", "\n*** killed by signal 9\n"},
            {{"/vendor/bin/none"},
             "/vendor/bin/none",
             "\n*** cannot run /vendor/bin/none: No such file or directory\n"},
            {{"/vendor/bin"}, "/vendor/bin", "\n*** cannot run /vendor/bin: Permission denied\n"},
    };
    for (const Case& run : cases) {
        std::string header = run.header;
        for (size_t at; (at = header.find('\n')) != std::string::npos;) {
            header.replace(at, 1, "\\n");
        }
        EXPECT_EQ(Run(run.command), "------ T (" + header + ") ------\n" + run.body + kFooter);
    }
    EXPECT_EQ(RunCommandToFd(report_, "T", Shell("exit 7")), 7);
    // Where children are nobody's to reap, how one ends can't be known.
    const auto reaping = signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(RunCommandToFd(report_, "T", Shell("exit 7")), 0);
    signal(SIGCHLD, reaping);
    EXPECT_EQ(RunCommandToFd(report_, "T", Shell("kill -9 $$")), 128 + SIGKILL);
}

TEST_F(PrimitivesTest, CommandStartsWithACleanSlate) {
    // All that a careless service could pass on: an open descriptor, a blocked and an ignored
    // signal.
    const int stray = open("/dev/null", O_RDONLY);
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    const auto ignored = signal(SIGPIPE, SIG_IGN);
    const std::string signals =
            Run({"/vendor/bin/grep", "-E", "Sig(Blk|Ign)", "/proc/self/status"});
    const std::string descriptors = Run({"/vendor/bin/ls", "/proc/self/fd"});
    const std::string rest = Run(
            Shell("readlink /proc/$$/fd/0; [ $(cut -d' ' -f5 /proc/$$/stat) = $$ ] && echo leads"));
    signal(SIGPIPE, ignored);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    close(stray);
    // The C library's spawn ignores its own two signals, 32 and 33, in every child.
    EXPECT_TRUE(HasMatch(signals, "\nSigBlk:\t0{16}\nSigIgn:\t0{7}[01][08]0{7}\n")) << signals;
    // ls itself holds 3 and 4 while it lists.
    EXPECT_NE(descriptors.find(" ------\n0\n1\n2\n3\n4\n\n"), std::string::npos) << descriptors;
    EXPECT_NE(rest.find(" ------\n/dev/null\nleads\n"), std::string::npos) << rest;
}

TEST_F(PrimitivesTest, TimeoutStopsTheWholeGroupAndKeepsWhatWasWritten) {
    const auto start = steady_clock::now();
    const std::string output = Run(
            Shell("trap '' TERM; (trap '' TERM; while :; do sleep 0.01; echo more; done) & echo "
                  "said; while :; do sleep 1; done"),
            1);
    EXPECT_GE(steady_clock::now() - start, 1s);
    EXPECT_NE(output.find("said\n"), std::string::npos);
    EXPECT_TRUE(output.ends_with(std::string("\n*** timed out after 1 s, stopped\n") + kFooter));
    EXPECT_EQ(census_.Newcomers(), "");
    // Nobody is left to write on.
    EXPECT_EQ(Timeless(ReadFd(report_)), output);
}

TEST_F(PrimitivesTest, TheWholeGroupGetsTheGrace) {
    const std::string output =
            Run(Shell("(trap 'sleep 0.1; echo tidied; exit' TERM; while :; do sleep 0.01; done) &"
                      " trap 'echo went on; exit' TERM; kill -STOP $$"),
                1);
    for (const char* said : {"\nwent on\n", "\ntidied\n"}) {
        EXPECT_NE(output.find(said), std::string::npos) << output;
    }
}

// One that has left its group for ours, and one that a driver lets go of later.
TEST_F(PrimitivesTest, HardToEndIsEndedAndReaped) {
    setpgid(0, 0);  // or our group is one outside of the wearable, which none inside can join
    setenv("LEAVE", "", 1);
    EXPECT_NE(Run({"/proc/self/exe"}, 1).find("*** timed out after 1 s"), std::string::npos);
    unsetenv("LEAVE");
    EXPECT_EQ(census_.Newcomers(), "");
    g_held = true;
    Run(Shell("exit"), 0);
    g_held = false;
    Run(Shell("exit"));
    EXPECT_EQ(census_.Newcomers(), "");
}

TEST_F(PrimitivesTest, BackgroundChildHoldsNothing) {
    const auto start = steady_clock::now();
    EXPECT_EQ(Run(Shell("sleep 1000 & echo done")),
              std::string("------ T (/vendor/bin/sh -c sleep 1000 & echo done) ------\ndone\n\n") +
                      kFooter);
    EXPECT_LT(steady_clock::now() - start, 100s);
    EXPECT_EQ(census_.Newcomers(), "");
}

TEST_F(PrimitivesTest, FileFormatAndEveryOutcome) {
    File("line", "one line\n");
    File("half", "half a line");
    File("empty", "");
    File("failed", "x\n*** exit status 1\n");
    File("cut off", "*** exit stat");
    File("earlier", "*** exit status 1\nx\n");
    File("odd\nname", "x\n");
    mkfifo("/tmp/files/fifo", 0600);
    struct Case {
        std::string path;
        std::string body;
    };
    const Case cases[] = {
            {"/tmp/files/line", "one line\n"},
            {"/tmp/files/half", "half a line\n"},
            {"/tmp/files/empty", ""},
            {"/tmp/files/failed", "x\n*** exit status 1\n\n"},
            {"/tmp/files/cut off", "*** exit stat\n\n"},
            {"/tmp/files/earlier", "*** exit status 1\nx\n"},
            {"/tmp/files/none", "*** cannot open /tmp/files/none: No such file or directory\n"},
            {"/tmp/files", "*** cannot read /tmp/files: Is a directory\n"},
            {"", "*** cannot open : No such file or directory\n"},
            {"/tmp/files/fifo", ""},
            {"/dev/null", ""},
            {"/proc/sys/kernel/hostname", "wearable\n"},
            {"/proc/self/mem", "*** cannot read /proc/self/mem: Input/output error\n"},
    };
    for (const Case& file : cases) {
        EXPECT_EQ(Dump(file.path), "------ T (" + file.path + ") ------\n" + file.body + kFooter);
    }
    // One that fails when it has said something.
    const auto [master, terminal] = OpenTerminal();
    EXPECT_EQ(write(terminal, "half", 4), 4);
    close(terminal);
    g_failing = master;
    EXPECT_EQ(Dump(kFailing), std::string("------ T (/tmp/files/failing) ------\nhalf\n*** cannot "
                                          "read /tmp/files/failing: Input/output error\n") +
                                      kFooter);
    EXPECT_EQ(Dump("/tmp/files/odd\nname"),
              std::string("------ T (/tmp/files/odd\\nname) ------\nx\n") + kFooter);
    // Controls and what is no UTF-8 are made visible in both lines, all else passes.
    const std::string text =
            "\xc2\xa0\xdf\xbf\xe0\xa0\x80\xed\x9f\xbf\xf0\x90\x80\x80\xf4\x8f\xbf\xbf";
    std::string hostile;
    std::string shown;
    for (const char* bytes :
         {"\t", "\x1b", "\x7f", "\xc2\x80", "\xc2\x9f", "\xc1\xbf", "\xe0\x9f\xbf", "\xed\xa0\x80",
          "\xf0\x8f\xbf\xbf", "\xf4\x90\x80\x80", "\xf5\x80", "\x80", "\xe2\x82", "\xf0\x90\x80"}) {
        hostile.append(bytes).append(".");
        for (; *bytes != '\0'; ++bytes) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned char>(*bytes));
            shown += *bytes == '\t' ? "\\t" : escape;
        }
        shown += ".";
    }
    EXPECT_EQ(Dump("/none/" + text + hostile),
              "------ T (/none/" + text + shown + ") ------\n*** cannot open /none/" + text +
                      shown + ": No such file or directory\n" + kFooter);
}

// One whose driver says nothing more, one that goes on for ever, and one that doesn't even open.
TEST_F(PrimitivesTest, FilesThatNeverEndAreCutOff) {
    mkfifo("/tmp/files/silent", 0600);
    const int writer = open("/tmp/files/silent", O_RDWR | O_CLOEXEC);
    EXPECT_EQ(write(writer, "*** x", 5), 5);
    const std::string failure = "\n*** timed out after 10 s, stopped\n";
    const struct {
        const char* path;
        int inputs;
        std::string shown;  // while more is waited for
    } files[] = {{"/tmp/files/silent", 1, "*** x"}, {kDead, 0, ""}, {"/dev/zero", INT_MAX, ""}};
    for (const auto& file : files) {
        const WithinAMinute end("a file that never ends");
        const std::string header = "------ T (" + std::string(file.path) + ") ------\n";
        OwnTime time;
        time.inputs = file.inputs;
        time.on_vain_wait = [&] {
            if (time.passed > 100ms) {
                EXPECT_EQ(ReadFd(report_), header + file.shown);
            }
        };
        const std::string report = Dump(file.path);
        EXPECT_GE(time.passed, 10s);
        EXPECT_LT(time.passed, 11s);
        EXPECT_TRUE(report.starts_with(header + file.shown));
        EXPECT_TRUE(report.ends_with(failure + kFooter));
    }
    // One thread is all that a file may hold.
    EXPECT_EQ(Dump(kDead), std::string("------ T (/tmp/files/dead) ------\n*** cannot open "
                                       "/tmp/files/dead: Operation already in progress\n") +
                                   kFooter);
    g_answer.release();
    Await([] {  // also of the file that is still open
        const std::filesystem::directory_iterator tasks("/proc/self/task");
        return std::distance(begin(tasks), end(tasks)) == 1 + BACKGROUND_THREADS;
    });
    close(writer);
    EXPECT_EQ(census_.Newcomers(), "");
}

TEST_F(PrimitivesTest, AFileThatPausesIsReadOn) {
    mkfifo("/tmp/files/slow", 0600);
    const int writer = open("/tmp/files/slow", O_RDWR | O_CLOEXEC);
    std::string lines;
    auto dump = std::async(std::launch::async, [this] { return Dump("/tmp/files/slow"); });
    for (const std::string line : {"*** x\n", "*** x\n", "*** x\n", "end\n"}) {
        EXPECT_EQ(write(writer, line.data(), line.size()), static_cast<ssize_t>(line.size()));
        lines += line;
        int unread = 1;
        Await([&] { return ioctl(writer, FIONREAD, &unread) == 0 && unread == 0; });
        if (HasFatalFailure()) break;
        std::this_thread::sleep_for(5ms);  // for its reader to find nothing
    }
    close(writer);
    EXPECT_EQ(dump.get(), "------ T (/tmp/files/slow) ------\n" + lines + kFooter);
}

TEST_F(PrimitivesTest, BigFileArrivesWholeInEveryKindOfDescriptor) {
    std::string content(5'000'000, 'x');
    for (size_t i = 0; i < content.size(); i += 997) content[i] = static_cast<char>(i);
    content += "\n*** x";
    const std::string path = File("big", content);
    const std::string expected = "------ T (" + path + ") ------\n" + content + "\n\n" + kFooter;
    EXPECT_TRUE(Dump(path) == expected);

    const int append = open("/tmp/files/out", O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    DumpFileToFd(append, "T", path);
    EXPECT_TRUE(Timeless(ReadFd(append)) == expected);
    close(append);

    for (const bool socket : {false, true}) {
        for (const int flags : {0, O_NONBLOCK}) {
            int ends[2];
            ASSERT_EQ(socket ? socketpair(AF_UNIX, SOCK_STREAM, 0, ends) : pipe(ends), 0);
            fcntl(ends[1], F_SETFL, fcntl(ends[1], F_GETFL) | flags);
            auto received = std::async(std::launch::async, ReadFd, ends[0]);
            EXPECT_EQ(DumpFileToFd(ends[1], "T", path), 0);
            close(ends[1]);
            EXPECT_TRUE(Timeless(received.get()) == expected) << socket << flags;
            close(ends[0]);
        }
    }
}

// A driver hands out whole records, and of one that finds no room the rest is lost.
TEST_F(PrimitivesTest, RecordsArriveWhole) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_DIRECT), 0);
    std::string records;
    for (int i = 0; i < 10; ++i) {
        const std::string record = std::to_string(i) + std::string(3000, 'r') + "\n";
        EXPECT_EQ(write(ends[1], record.data(), record.size()), 3002);
        records += record;
    }
    close(ends[1]);
    EXPECT_TRUE(Dump("/proc/self/fd/" + std::to_string(ends[0]))
                        .ends_with(" ------\n" + records + kFooter));
    close(ends[0]);
}

TEST_F(PrimitivesTest, LostReaderAndFullDiskCostTheSectionOnly) {
    const std::string path = File("file", std::string(100'000, 'x'));
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    const auto ignored = signal(SIGPIPE, SIG_IGN);
    for (const int fd :
         {ends[1], open("/dev/full", O_WRONLY | O_CLOEXEC), 200 /* not open */, -1}) {
        EXPECT_EQ(DumpFileToFd(fd, "T", path), -1);
        // Nor is a reader that is gone the end of who writes.
        EXPECT_EQ(IsNull(fd), fd == ends[1]);
        RunCommandToFd(fd, "T", Shell("echo out; echo ran >/tmp/files/ran"));
        EXPECT_TRUE(std::filesystem::remove("/tmp/files/ran")) << fd;
        close(fd);
    }
    signal(SIGPIPE, ignored);
}

// Three kinds of descriptors that take nothing any more, and the reader of each.
struct Stuck {
    const char* name;
    int fd;
    int reader;
};

std::vector<Stuck> StuckReaders() {
    int pipe[2];
    int sockets[2];
    EXPECT_EQ(pipe2(pipe, O_CLOEXEC), 0);
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets), 0);
    const int small = 16384;
    setsockopt(sockets[0], SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
    const auto [master, terminal] = OpenTerminal();
    return {{"pipe", pipe[1], pipe[0]},
            {"socket", sockets[0], sockets[1]},
            {"terminal", terminal, master}};
}

TEST_F(PrimitivesTest, AStuckReaderIsWaitedForOnce) {
    std::string lines;
    for (size_t i = 0; i < 10'000; ++i) lines += std::string(i % 300, 'x') + "\n\r\n";
    const std::string path = File("big", lines);
    for (const Stuck& stuck : StuckReaders()) {
        SCOPED_TRACE(stuck.name);
        EXPECT_FALSE(IsNull(stuck.fd));
        {
            const WithinAMinute end("a report that nobody reads");
            OwnTime time;
            time.inputs = INT_MAX;
            EXPECT_EQ(DumpFileToFd(stuck.fd, "T", path), -1);
            EXPECT_EQ(time.waited, 30s);
        }
        EXPECT_TRUE(IsNull(stuck.fd));
        // What follows runs as usual.
        EXPECT_EQ(RunCommandToFd(stuck.fd, "T", Shell("cat /tmp/files/big; echo >/tmp/files/ran")),
                  0);
        EXPECT_TRUE(std::filesystem::remove("/tmp/files/ran"));
        close(stuck.fd);
        close(stuck.reader);
    }
    // Nobody reads standard output for what it says.
    OwnTime time;
    time.inputs = INT_MAX;
    const int output = dup(STDOUT_FILENO);
    const Stuck pipe = StuckReaders()[0];
    dup2(pipe.fd, STDOUT_FILENO);
    DumpFileToFd(STDOUT_FILENO, "T", path);
    dup2(output, STDOUT_FILENO);
    EXPECT_EQ(time.waited, 5s);
}

// However long it takes in all: neither its own patience ends nor the file's.
TEST_F(PrimitivesTest, AReaderThatPausesMissesNothing) {
    const std::string path = File("big", std::string(300'000, 'x'));
    const std::string expected = Dump(path);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const std::string before(65536, 'f');
    ASSERT_EQ(write(ends[1], before.data(), before.size()), 65536);
    std::string received;
    {
        OwnTime time;
        time.inputs = INT_MAX;
        time.slow_reader = ends[0];
        time.on_read = [&](std::string_view page) { received += page; };
        EXPECT_EQ(DumpFileToFd(ends[1], "T", path), 0);
        EXPECT_GT(time.passed, 60s);
    }
    close(ends[1]);
    EXPECT_TRUE(Timeless(received + ReadFd(ends[0])) == before + expected);
    close(ends[0]);
}

TEST_F(PrimitivesTest, AProgramThatDoesNotBeginIsEndedWhenItDoes) {
    std::filesystem::create_symlink("/vendor/bin/sleep", kHung);
    const std::string header = "------ T (/tmp/files/hung 1000) ------\n\n*** ";
    const auto start = steady_clock::now();
    EXPECT_EQ(Run({kHung, "1000"}, 0), header + "timed out after 0 s, stopped\n" + kFooter);
    EXPECT_GE(steady_clock::now() - start, 1s);  // or no program would ever begin
    EXPECT_EQ(Run({kHung, "1000"}, 1),
              header + "cannot run " + kHung + ": Operation already in progress\n" + kFooter);
    g_answer.release();
    EXPECT_EQ(census_.Newcomers(), "");
    g_answer.release();
    EXPECT_EQ(Run({kHung, "0"}), std::string("------ T (/tmp/files/hung 0) ------\n\n") + kFooter);
}

TEST_F(PrimitivesTest, UserBuildsSaySo) {
    const std::string property = "/dev/__properties__/ro.build.type";
    for (const std::string type : {"user", "userdebug", ""}) {
        std::ofstream(property) << type;
        EXPECT_EQ(PropertiesHelper::IsUserBuild(), type == "user");
    }
}

TEST_F(PrimitivesTest, WithoutThreadsOnlyFilesAreMissed) {
    const NoThreads none;
    EXPECT_NE(Run(Shell("echo ran")).find("\nran\n\n------ T was"), std::string::npos);
    EXPECT_NE(Dump("/dev/null")
                      .find("\n*** cannot open /dev/null: Resource temporarily unavailable\n"),
              std::string::npos);
}

TEST_F(PrimitivesTest, ThreadsLeaveNoMemoryBehind) {
    if (kSanitized) GTEST_SKIP() << "the sanitizer holds memory of its own";
    const auto pages = [] { return std::stol(ReadFile("/proc/self/statm")); };
    Dump("/dev/null");
    const long before = pages();
    constexpr int kDumps = 50;
    for (int i = 0; i < kDumps; ++i) Dump("/dev/null");
    EXPECT_LT(pages() - before, kDumps * 20);  // half of each thread's stack
}

TEST_F(PrimitivesTest, WorksWithoutDescriptorsToSpare) {
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    rlimit none = before;
    none.rlim_cur = static_cast<rlim_t>(report_) + 1;
    setrlimit(RLIMIT_NOFILE, &none);
    const std::string output = Run(Shell("echo ran"));
    const std::string stopped = Run(Shell("sleep 1000"), 1);
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_NE(output.find("\nran\n\n------ T was"), std::string::npos) << output;
    EXPECT_NE(stopped.find("*** timed out after 1 s, stopped\n"), std::string::npos) << stopped;
}

}  // namespace
}  // namespace android::os::dumpstate
