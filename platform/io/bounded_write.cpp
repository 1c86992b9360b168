#include "platform/bounded_write.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <ctime>
#include <mutex>
#include <optional>
#include <string>

namespace platform {
namespace {

sigset_t SigpipeSet() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    return set;
}

using Clock = std::chrono::steady_clock;

// A wait that its deadline cuts shorter than this says nothing about the reader.
constexpr std::chrono::milliseconds kTelling{50};

// The readers that are stuck, by the files that they read. There is room for a report's few; one
// that is forgotten is found again.
class StuckReaders {
  public:
    bool Has(int fd) {
        if (!any_) return false;
        const std::lock_guard lock(mutex_);
        return Find(fd) != files_.end();
    }
    void Add(int fd) {
        const std::lock_guard lock(mutex_);
        if (Find(fd) == files_.end()) files_[next_++ % files_.size()] = FileOf(fd);
        any_ = true;
    }
    void Remove(int fd) {
        const std::lock_guard lock(mutex_);
        if (const auto found = Find(fd); found != files_.end()) *found = {};
    }

  private:
    struct File {
        dev_t device = 0;
        ino_t inode = 0;
        bool operator==(const File&) const = default;
    };
    using Files = std::array<File, 8>;

    static File FileOf(int fd) {
        struct stat status {};
        fstat(fd, &status);
        return {status.st_dev, status.st_ino};
    }
    Files::iterator Find(int fd) { return std::ranges::find(files_, FileOf(fd)); }

    std::atomic<bool> any_ = false;  // nearly always false, and then nothing is asked
    std::mutex mutex_;
    Files files_{};
    size_t next_ = 0;
};

constinit StuckReaders g_stuck_readers;

bool PollWritable(int fd, Deadline deadline) {
    pollfd writable{fd, POLLOUT, 0};
    for (;;) {
        const int ready = poll(&writable, 1, PollTimeout(deadline));
        if (ready > 0) return true;
        if (ready == 0) return false;
        if (errno != EINTR && errno != EAGAIN) return true;
    }
}

}  // namespace

int PollTimeout(Deadline deadline) {
    using std::chrono::ceil;
    using std::chrono::milliseconds;
    const auto left = ceil<milliseconds>(deadline - Clock::now()).count();
    return static_cast<int>(std::clamp<milliseconds::rep>(left, 0, INT_MAX));
}

bool MakeRoom(int fd) {
    if (PollWritable(fd, Clock::now())) return true;
    constexpr int kMost = 1 << 20;
    const int size = fcntl(fd, F_GETPIPE_SZ);
    return size > 0 && size < kMost && fcntl(fd, F_SETPIPE_SZ, kMost) > size;
}

bool WaitWritable(int fd, Deadline deadline) {
    const Deadline start = Clock::now();
    const bool stuck = g_stuck_readers.Has(fd);
    if (PollWritable(fd, stuck ? start : deadline)) {
        if (stuck) g_stuck_readers.Remove(fd);
        return true;
    }
    if (stuck || Clock::now() - start < kTelling) return false;
    if (MakeRoom(fd)) return true;
    g_stuck_readers.Add(fd);
    return false;
}

namespace {

bool IsMaster(int terminal) {
    int number = 0;
    return ioctl(terminal, TIOCGPTN, &number) == 0;
}

// A file to write to without blocking. What another writer leaves of a pipe's room between the poll
// and the write, and how much room a terminal has, nobody knows: a second, non-blocking descriptor
// is written to instead, where opening it anew yields the same file.
class Output {
  public:
    explicit Output(int fd) : fd_(fd) {
        struct stat status {};
        if (fstat(fd, &status) != 0) {
            error_ = errno;
            return;
        }
        socket_ = S_ISSOCK(status.st_mode);
        regular_ = S_ISREG(status.st_mode);
        const bool terminal = S_ISCHR(status.st_mode) && isatty(fd) != 0;
        if (S_ISFIFO(status.st_mode) || (terminal && !IsMaster(fd))) OpenTwin();
        if (twin_ >= 0 || regular_ || socket_) return;
        // Another user's can't be opened. One that poll(2) calls writable has room for this much,
        // unless another writer takes it: a pipe by its contract, and a terminal's master as the
        // kernel's buffers for terminals are no smaller.
        most_ = terminal ? 256 : PIPE_BUF;
    }
    ~Output() {
        if (twin_ >= 0) close(twin_);
    }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    int error() const { return error_; }
    bool regular() const { return regular_; }
    ssize_t Write(std::string_view text) const {
        if (socket_) return send(fd_, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        return write(twin_ >= 0 ? twin_ : fd_, text.data(), std::min(text.size(), most_));
    }

  private:
    void OpenTwin() {
        const std::string path = "/proc/self/fd/" + std::to_string(fd_);
        twin_ = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    }

    const int fd_;
    int error_ = 0;
    bool socket_ = false;
    bool regular_ = false;
    int twin_ = -1;
    size_t most_ = SIZE_MAX;
};

int WriteAll(const Output& output, int fd, std::string_view text, Deadline deadline) {
    while (!text.empty()) {
        const bool stuck = g_stuck_readers.Has(fd);
        if (!output.regular() && !WaitWritable(fd, deadline)) return stuck ? EAGAIN : ETIMEDOUT;
        const ssize_t written = output.Write(text);
        if (written >= 0) {
            text.remove_prefix(static_cast<size_t>(written));
        } else if (errno == EAGAIN) {
            // Somebody else filled it between the poll and the write.
            if (Clock::now() >= deadline) return ETIMEDOUT;
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

}  // namespace

int WriteUntil(int fd, std::string_view text, Deadline deadline) {
    const Output output(fd);
    if (output.error() != 0) return output.error();
    std::optional<SigpipeGuard> guard;
    if (!output.regular()) guard.emplace();
    return WriteAll(output, fd, text, deadline);
}

SigpipeGuard::SigpipeGuard() {
    const sigset_t sigpipe = SigpipeSet();
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &sigpipe, &before);
    engaged_ = sigismember(&before, SIGPIPE) == 0;
}

SigpipeGuard::~SigpipeGuard() {
    if (!engaged_) return;
    const int error = errno;
    const sigset_t sigpipe = SigpipeSet();
    const timespec now{};
    while (sigtimedwait(&sigpipe, nullptr, &now) < 0 && errno == EINTR) {
    }
    pthread_sigmask(SIG_UNBLOCK, &sigpipe, nullptr);
    errno = error;
}

}  // namespace platform
