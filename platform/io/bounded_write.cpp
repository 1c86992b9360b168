#include "platform/bounded_write.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>
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

// A pipe that poll(2) calls writable has room for PIPE_BUF bytes at least: that many never block
// on it, even when the pipe is a blocking one and its reader has stopped.
constexpr size_t kNeverBlocks = PIPE_BUF;

ssize_t WriteSome(int fd, mode_t type, std::string_view text) {
    if (S_ISSOCK(type)) {
        return send(fd, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    }
    const size_t most = S_ISREG(type) ? text.size() : std::min(text.size(), kNeverBlocks);
    return write(fd, text.data(), most);
}

}  // namespace

int PollTimeout(Deadline deadline) {
    using std::chrono::ceil;
    using std::chrono::milliseconds;
    const auto left = ceil<milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    return static_cast<int>(std::clamp<milliseconds::rep>(left, 0, INT_MAX));
}

bool WaitWritable(int fd, Deadline deadline) {
    pollfd writable{fd, POLLOUT, 0};
    for (;;) {
        const int ready = poll(&writable, 1, PollTimeout(deadline));
        if (ready > 0) return true;
        if (ready == 0) return false;
        if (errno != EINTR && errno != EAGAIN) return true;
    }
}

namespace {

// Another writer may take a pipe's room between the poll and the write, and a terminal may have
// room for a single byte: a second, non-blocking descriptor for the same pipe or device is written
// to instead. One that belongs to another user can't be opened.
int OpenWithoutBlocking(int fd) {
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    return open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

int WriteAll(int fd, mode_t type, std::string_view text, Deadline deadline) {
    while (!text.empty()) {
        if (!S_ISREG(type) && !WaitWritable(fd, deadline)) return ETIMEDOUT;
        const ssize_t written = WriteSome(fd, type, text);
        if (written >= 0) {
            text.remove_prefix(static_cast<size_t>(written));
        } else if (errno == EAGAIN) {
            // Somebody else filled it between the poll and the write.
            if (std::chrono::steady_clock::now() >= deadline) return ETIMEDOUT;
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

}  // namespace

int WriteUntil(int fd, std::string_view text, Deadline deadline) {
    struct stat status {};
    if (fstat(fd, &status) != 0) return errno;
    std::optional<SigpipeGuard> guard;
    if (!S_ISREG(status.st_mode)) guard.emplace();
    const bool may_block = S_ISCHR(status.st_mode) || S_ISFIFO(status.st_mode);
    const int twin = may_block ? OpenWithoutBlocking(fd) : -1;
    const int error = WriteAll(twin >= 0 ? twin : fd, status.st_mode, text, deadline);
    if (twin >= 0) close(twin);
    return error;
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
