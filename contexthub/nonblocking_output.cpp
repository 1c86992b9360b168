#include "nonblocking_output.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>

namespace android::chre {

NonblockingOutput::NonblockingOutput(int fd) : fd_(fd) {
    struct stat status {};
    if (fstat(fd, &status) != 0) return;
    socket_ = S_ISSOCK(status.st_mode);
    most_ = SIZE_MAX;
    if (!S_ISFIFO(status.st_mode) && !S_ISCHR(status.st_mode)) return;
    char path[sizeof "/proc/self/fd/" + 3 * sizeof fd];
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
    reopened_.reset(open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    // Another user's pipe can't be opened anew. One that poll(2) calls writable has room for this
    // much at least, unless there is another writer.
    if (reopened_.get() < 0) most_ = PIPE_BUF;
}

bool NonblockingOutput::WaitWritable(int milliseconds) const {
    pollfd writable{fd_, POLLOUT, 0};
    int ready = 0;
    do {
        ready = poll(&writable, 1, milliseconds);
    } while (ready < 0 && errno == EINTR);
    if (ready < 0) return false;
    if (ready == 0) {
        errno = ETIMEDOUT;
    } else if (writable.revents != POLLOUT) {
        errno = (writable.revents & POLLNVAL) != 0 ? EBADF : EPIPE;
    } else {
        return true;
    }
    return false;
}

ssize_t NonblockingOutput::Write(const void* data, size_t size) const {
    if (socket_) return send(fd_, data, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    return write(reopened_.get() < 0 ? fd_ : reopened_.get(), data, std::min(size, most_));
}

}  // namespace android::chre
