#include "nonblocking_output.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <mutex>

namespace android::chre {
namespace {

using Clock = std::chrono::steady_clock;

bool IsTerminalMaster(int fd) {
    int number = 0;
    return ioctl(fd, TIOCGPTN, &number) == 0;
}

base::unique_fd OpenAnew(int fd) {
    char path[sizeof "/proc/self/fd/" + 3 * sizeof fd];
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
    return base::unique_fd(open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

}  // namespace

// There is room for a report's few; one that is forgotten is found again.
class NonblockingOutput::StuckReaders {
  public:
    bool Has(const File& file) {
        if (!any_) return false;
        const std::lock_guard lock(mutex_);
        return std::ranges::find(files_, file) != files_.end();
    }
    void Add(const File& file) {
        const std::lock_guard lock(mutex_);
        files_[next_++ % files_.size()] = file;
        any_ = true;
    }
    void Remove(const File& file) {
        if (!any_) return;
        const std::lock_guard lock(mutex_);
        std::ranges::replace(files_, file, File{});
    }

  private:
    std::atomic<bool> any_ = false;  // nearly always false, and then nothing is asked
    std::mutex mutex_;
    std::array<File, 4> files_{};
    size_t next_ = 0;
};

constinit NonblockingOutput::StuckReaders NonblockingOutput::stuck_readers_;

NonblockingOutput::NonblockingOutput(int fd) : fd_(fd) {
    struct stat status {};
    if (fstat(fd, &status) != 0) {
        error_ = errno;
        return;
    }
    file_ = {status.st_dev, status.st_ino};
    socket_ = S_ISSOCK(status.st_mode);
    if (!S_ISFIFO(status.st_mode) && !S_ISCHR(status.st_mode)) return;
    const bool terminal = S_ISCHR(status.st_mode) && isatty(fd) != 0;
    // What has a state of its own would be another file.
    if (S_ISFIFO(status.st_mode) || (terminal && !IsTerminalMaster(fd))) reopened_ = OpenAnew(fd);
    // Nor can another user's be opened. One that poll(2) calls writable has room for this much,
    // unless another writer takes it: a pipe by its contract, and a terminal's master as the
    // kernel's buffers for terminals are no smaller.
    if (reopened_.get() < 0) most_ = terminal ? 256 : PIPE_BUF;
}

bool NonblockingOutput::Is(int fd) const {
    struct stat status {};
    return fd == fd_ && fstat(fd, &status) == 0 && file_ == File{status.st_dev, status.st_ino};
}

bool NonblockingOutput::WaitForRoom(Clock::time_point deadline) const {
    const bool stuck = stuck_readers_.Has(file_);
    pollfd room{fd_, POLLOUT, 0};
    int ready = 0;
    do {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        ready = poll(&room, 1, stuck ? 0 : std::max(static_cast<int>(left.count()), 0));
    } while (ready < 0 && errno == EINTR);
    if (ready != 0) return true;  // what else is wrong with it, the write will tell
    if (!stuck) stuck_readers_.Add(file_);
    errno = ETIMEDOUT;
    return false;
}

ssize_t NonblockingOutput::WriteSome(std::string_view text) const {
    if (socket_) return send(fd_, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    return write(reopened_.get() < 0 ? fd_ : reopened_.get(), text.data(),
                 std::min(text.size(), most_));
}

bool NonblockingOutput::Write(std::string_view text, std::chrono::milliseconds patience) const {
    errno = error_;
    if (error_ != 0) return false;
    Clock::time_point deadline = Clock::now() + patience;
    bool ask = most_ != SIZE_MAX;
    while (!text.empty()) {
        if (ask && !WaitForRoom(deadline)) return false;
        const ssize_t written = WriteSome(text);
        if (written > 0) {
            stuck_readers_.Remove(file_);
            text.remove_prefix(static_cast<size_t>(written));
            deadline = Clock::now() + patience;
        } else if (written == 0 || (errno != EAGAIN && errno != EINTR)) {
            return false;
        } else if (Clock::now() > deadline) {  // others were faster, time and again
            errno = ETIMEDOUT;
            return false;
        }
        ask = written < 0 || most_ != SIZE_MAX;
    }
    return true;
}

}  // namespace android::chre
