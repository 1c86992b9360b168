#include "processes.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>
#include <utility>

namespace fs = std::filesystem;

ProcessCensus::ProcessCensus() {
    // The thread sanitizer gives a process one thread more when it starts its first.
    std::thread([] {}).join();
    before_ = Take();
}

std::set<std::string> ProcessCensus::Take() {
    std::set<std::string> census;
    std::error_code gone;
    for (const auto& process : fs::directory_iterator("/proc")) {
        const std::string pid = process.path().filename();
        if (!std::ranges::all_of(pid, [](unsigned char c) { return std::isdigit(c) != 0; })) {
            continue;
        }
        std::string name;
        std::getline(std::ifstream(process.path() / "comm"), name);
        census.insert("process " + pid + " " + name);
    }
    const auto standard = [&gone](const char* number) {
        return fs::read_symlink(std::string("/proc/self/fd/") + number, gone);
    };
    for (const char* kind : {"fd", "task"}) {
        for (const auto& entry : fs::directory_iterator(fs::path("/proc/self") / kind)) {
            const fs::path target = fs::read_symlink(entry, gone);
            // Neither the listing's own descriptor nor one that the link keeps for its copies on
            // standard output and error is a newcomer.
            if (target.native().ends_with("/fd")) continue;
            if (!target.empty() && (target == standard("1") || target == standard("2"))) continue;
            census.insert(std::string(kind) + " " + entry.path().filename().native());
        }
    }
    return census;
}

std::string ProcessCensus::Newcomers() const {
    std::string newcomers;
    for (int looks = 0; looks < 300; ++looks) {
        newcomers.clear();
        for (const std::string& one : Take()) {
            if (!before_.contains(one)) newcomers += one + "\n";
        }
        if (newcomers.empty()) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return newcomers;
}

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string ReadFd(int fd) {
    const bool is_file = lseek(fd, 0, SEEK_CUR) >= 0;
    std::string text;
    std::vector<char> part(1 << 16);
    for (ssize_t size = 1; size > 0; text.append(part.data(), static_cast<size_t>(size))) {
        size = is_file ? pread(fd, part.data(), part.size(), static_cast<off_t>(text.size()))
                       : read(fd, part.data(), part.size());
        size = std::max<ssize_t>(size, 0);
    }
    return text;
}

bool IsNull(int fd) {
    struct stat status {};
    struct stat null {};
    return fstat(fd, &status) == 0 && stat("/dev/null", &null) == 0 &&
           status.st_rdev == null.st_rdev && (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0;
}

Terminal OpenTerminal() {
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_TRUE(grantpt(master) == 0 && unlockpt(master) == 0);
    return {master, open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC)};
}

SwappedTool::SwappedTool(const std::string& name, const std::string& script)
    : tool_("/vendor/bin/" + name), aside_(tool_ + ".aside") {
    fs::rename(tool_, aside_);
    if (script.empty()) return;
    std::ofstream(tool_) << "#!/vendor/bin/sh\n" << script << "\n";
    fs::permissions(tool_, fs::perms::all);
}

SwappedTool::~SwappedTool() {
    fs::rename(aside_, tool_);
}

pid_t Spawn(const std::vector<std::string>& command, const std::string& errors,
            const std::string& output) {
    std::vector<char*> argv;
    for (const std::string& word : command) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    constexpr int kFlags = O_WRONLY | O_CREAT | O_APPEND;
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, output.c_str(), kFlags, 0600);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, errors.c_str(), kFlags, 0600);
    pid_t child = -1;
    EXPECT_EQ(posix_spawnp(&child, argv[0], &files, nullptr, argv.data(), environ), 0) << argv[0];
    posix_spawn_file_actions_destroy(&files);
    return child;
}

int EndChild(pid_t& child, int signal) {
    int status = -1;
    if (child <= 0) return status;
    kill(child, signal);
    const WithinAMinute end("the end of a child");
    waitpid(std::exchange(child, -1), &status, 0);
    return status;
}

void Await(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!condition()) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

namespace {

std::atomic<const char*> g_awaited = "";  // threads may wait side by side

// Ends the program unless the signal is taken back before.
void Wait(const char* what, unsigned seconds) {
    g_awaited = what;
    signal(SIGALRM, [](int) {
        for (const char* text : {"Waited too long for ", g_awaited.load(), "\n"}) {
            if (write(STDERR_FILENO, text, std::strlen(text)) < 0) break;
        }
        _exit(1);
    });
    alarm(seconds);
}

// No case outlasts what ctest waits for its program, and one that would is named.
class Patience : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo& test) override { Wait(test.name(), PATIENCE - 30); }
    void OnTestEnd(const testing::TestInfo& /*test*/) override { alarm(0); }
};

[[maybe_unused]] const bool g_patience = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new Patience);
    return true;
}();

}  // namespace

WithinAMinute::WithinAMinute(const char* what) : before_(g_awaited) {
    Wait(what, 60);
}

WithinAMinute::~WithinAMinute() {
    Wait(before_, PATIENCE - 30);
}

int Bounded(int socket) {
    const timeval patience{60, 0};
    EXPECT_EQ(setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience), 0);
    return socket;
}

void BeAnOrdinaryUser(const std::vector<std::string>& belongings) {
    constexpr uid_t kNobody = 65534;
    if (getuid() != 0) return;
    for (const std::string& path : belongings) {
        ASSERT_EQ(chown(path.c_str(), kNobody, kNobody), 0);
    }
    std::ofstream("/etc/passwd", std::ios::app) << "nobody:x:65534:65534::/data:/vendor/bin/sh\n";
    ASSERT_EQ(setresgid(kNobody, kNobody, kNobody), 0);
    ASSERT_EQ(setresuid(kNobody, kNobody, kNobody), 0);
    prctl(PR_SET_DUMPABLE, 1);  // or this process's own folder in /proc stays root's
}
