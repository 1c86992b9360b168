#include "platform/bounded_write.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>

namespace platform {
namespace {

// A terminal may get room without waking who waits for it: it is looked at again this often.
constexpr std::chrono::seconds kLookAgain{1};

// How much of a text a terminal has room for when poll(2) says so: a run of characters, or one that
// steers it.
size_t TerminalPiece(std::string_view text) {
    const auto* const steering =
            std::ranges::find_if(text, [](char c) { return static_cast<unsigned char>(c) < ' '; });
    return static_cast<size_t>(std::clamp<ptrdiff_t>(steering - text.begin(), 1, 128));
}

}  // namespace

int PollTimeout(Deadline deadline) {
    using std::chrono::ceil;
    using std::chrono::milliseconds;
    const auto left = ceil<milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    return static_cast<int>(std::clamp<milliseconds::rep>(left, 0, INT_MAX));
}

int WriteWithin(std::chrono::milliseconds patience, int fd, std::string_view text) {
    struct stat status {};
    if (fstat(fd, &status) != 0) return errno;
    const bool terminal = S_ISCHR(status.st_mode) && isatty(fd) == 1;
    const size_t most = S_ISREG(status.st_mode) ? SIZE_MAX : PIPE_BUF;
    std::chrono::milliseconds left = patience;
    while (!text.empty()) {
        pollfd room{fd, POLLOUT, 0};
        const auto wait = std::min<std::chrono::milliseconds>(left, kLookAgain);
        const int ready = poll(&room, 1, static_cast<int>(wait.count()));
        if (ready == 0) {
            left -= wait;
            if (left.count() == 0) return ETIMEDOUT;
            continue;
        }
        const size_t piece = terminal ? TerminalPiece(text) : std::min(text.size(), most);
        const ssize_t written = ready < 0 ? -1 : write(fd, text.data(), piece);
        if (written == 0) return EIO;
        if (written > 0) {
            text.remove_prefix(static_cast<size_t>(written));
            left = patience;
        } else if (errno != EINTR && errno != EAGAIN) {
            return errno;
        }
    }
    return 0;
}

void GiveUpReader(int fd) {
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (null < 0) return;
    dup3(null, fd, fd > STDERR_FILENO ? O_CLOEXEC : 0);
    close(null);
}

}  // namespace platform
