#include "child_process.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <mutex>
#include <thread>

#include "held_thread.h"

extern "C" {  // glibc 2.36 declares it for C only
#include <sys/pidfd.h>
}

namespace android::os::dumpstate {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kTerminationGrace{500};
constexpr milliseconds kKillGrace{1000};
constexpr milliseconds kLookAgain{5};

// Programs that not even SIGKILL has ended yet.
class Unkillable {
  public:
    void Add(pid_t pid) {
        const std::lock_guard lock(mutex_);
        pids_.push_back(pid);
    }
    void Reap() {
        const std::lock_guard lock(mutex_);
        std::erase_if(pids_, [](pid_t pid) { return waitpid(pid, nullptr, WNOHANG) != 0; });
    }

  private:
    std::mutex mutex_;
    std::vector<pid_t> pids_;
};

Unkillable& TheUnkillable() {
    static Unkillable unkillable;
    return unkillable;
}

// Whether a process other than its leader still runs in the group. The kernel counts a leader that
// waits to be reaped as a member, so that only a look at each process tells.
bool GroupHasOthers(pid_t group) {
    const std::unique_ptr<DIR, int (*)(DIR*)> processes(opendir("/proc"), closedir);
    if (processes == nullptr) return false;
    while (const dirent* const entry = readdir(processes.get())) {
        const int pid = std::atoi(entry->d_name);
        if (pid <= 0 || pid == group || getpgid(pid) != group) continue;
        std::string line;
        std::getline(std::ifstream("/proc/" + std::to_string(pid) + "/stat"), line);
        const size_t name_end = line.rfind(") ");
        if (name_end != std::string::npos && line.compare(name_end, 3, ") Z") != 0) return true;
    }
    return false;
}

// What posix_spawn(3) does in the child before the program runs.
class SpawnPlan {
  public:
    explicit SpawnPlan(int output_fd) {
        posix_spawn_file_actions_init(&actions_);
        posix_spawnattr_init(&attributes_);
        // Standard input last: output_fd may itself be 0.
        Check(posix_spawn_file_actions_adddup2(&actions_, output_fd, STDOUT_FILENO));
        Check(posix_spawn_file_actions_adddup2(&actions_, output_fd, STDERR_FILENO));
        Check(posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0));
        Check(posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1));

        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        posix_spawnattr_setpgroup(&attributes_, 0);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK |
                                                       POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnPlan() {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    SpawnPlan(const SpawnPlan&) = delete;
    SpawnPlan& operator=(const SpawnPlan&) = delete;

    int Spawn(pid_t* pid, char* const* argv) const {
        if (error_ != 0) return error_;
        return posix_spawn(pid, argv[0], &actions_, &attributes_, argv, environ);
    }

  private:
    // A plan with a step missing is not run: the program would write who knows where.
    void Check(int error) {
        if (error_ == 0) error_ = error;
    }

    int error_ = 0;
    posix_spawn_file_actions_t actions_;
    posix_spawnattr_t attributes_;
};

// A program that is being started, shared by who wants it and the thread that starts it.
class Spawning {
  public:
    Spawning(const std::vector<std::string>& command, int output_fd)
        : command_(command), plan_(output_fd) {
        argv_.reserve(command_.size() + 1);
        for (std::string& argument : command_) argv_.push_back(argument.data());
        argv_.push_back(nullptr);
    }

    // Allocates nothing: nobody catches what would be thrown on a thread of its own.
    void Run() {
        {
            const std::lock_guard lock(mutex_);
            if (abandoned_) return;
        }
        pid_t pid = -1;
        const int error = plan_.Spawn(&pid, argv_.data());
        const std::lock_guard lock(mutex_);
        error_ = error;
        pid_ = error == 0 ? pid : -1;
        if (abandoned_ && error == 0) {
            kill(-pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
        changed_.notify_one();
    }

    // The program's number, below 0 when it could not be started; nothing at the deadline, and then
    // the program is ended as soon as it begins.
    std::optional<pid_t> WaitUntil(platform::Deadline deadline) {
        std::unique_lock lock(mutex_);
        abandoned_ = !changed_.wait_until(lock, deadline, [this] { return pid_.has_value(); });
        return pid_;
    }
    int error() const { return error_; }

  private:
    std::vector<std::string> command_;
    std::vector<char*> argv_;
    const SpawnPlan plan_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::optional<pid_t> pid_;
    int error_ = 0;
    bool abandoned_ = false;
};

}  // namespace

int ChildProcess::Start(const std::vector<std::string>& command, int output_fd,
                        platform::Deadline deadline) {
    TheUnkillable().Reap();
    if (command.empty()) return EINVAL;
    if (IsHeld(command[0])) return EALREADY;
    const auto spawning = std::make_shared<Spawning>(command, output_fd);
    // Where there is no thread to be had, the risk is the smaller loss.
    if (StartDetached([spawning] { spawning->Run(); }) != 0) spawning->Run();
    const std::optional<pid_t> pid = spawning->WaitUntil(deadline);
    if (!pid) {
        RememberHeld(command[0], spawning);
        return ETIMEDOUT;
    }
    if (*pid < 0) return spawning->error();
    pid_ = *pid;
    pidfd_.reset(pidfd_open(pid_, 0));
    return 0;
}

ChildProcess::~ChildProcess() {
    if (pid_ < 0) return;
    Signal(SIGKILL);
    if (WaitUntil(steady_clock::now() + kKillGrace)) {
        waitpid(pid_, nullptr, 0);
    } else {
        TheUnkillable().Add(pid_);
    }
}

std::optional<ChildProcess::End> ChildProcess::WaitUntil(platform::Deadline deadline) const {
    for (;;) {
        siginfo_t info{};
        const int result =
                waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT | WNOHANG);
        if (result == 0 && info.si_pid == pid_) {
            return End{info.si_code == CLD_EXITED, info.si_status};
        }
        // Somebody has told the kernel to reap children by itself: it has ended, no one knows how.
        if (result != 0 && errno == ECHILD) return End{true, 0};
        const steady_clock::time_point now = steady_clock::now();
        if (now >= deadline) return std::nullopt;
        if (pidfd_.get() >= 0) {
            pollfd ended{pidfd_.get(), POLLIN, 0};
            poll(&ended, 1, platform::PollTimeout(deadline));
        } else {  // no descriptor was left for one
            std::this_thread::sleep_for(
                    std::min<steady_clock::duration>(kLookAgain, deadline - now));
        }
    }
}

void ChildProcess::Stop() const {
    Signal(SIGTERM);
    Signal(SIGCONT);  // a stopped process sees no signal before it goes on
    const platform::Deadline grace = steady_clock::now() + kTerminationGrace;
    WaitUntil(grace);
    while (steady_clock::now() < grace && GroupHasOthers(pid_)) {
        std::this_thread::sleep_for(kLookAgain);
    }
    Signal(SIGKILL);
}

void ChildProcess::Signal(int signal) const {
    kill(-pid_, signal);
    // It may have joined another group, but its own number is its own.
    if (getpgid(pid_) != pid_) kill(pid_, signal);
}

}  // namespace android::os::dumpstate
