#include "patient_write.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>

namespace android::chre {
namespace {

using std::chrono::milliseconds;

// A terminal may get room without waking who waits for it: it is looked at again this often.
constexpr milliseconds kLookAgain{1000};

// How much of a text a terminal has room for when poll(2) says so: a run of characters, or one that
// steers it.
size_t terminalPiece(std::string_view text) {
    const auto* const steering =
            std::ranges::find_if(text, [](char c) { return static_cast<unsigned char>(c) < ' '; });
    return static_cast<size_t>(std::clamp<ptrdiff_t>(steering - text.begin(), 1, 128));
}

}  // namespace

bool writePatiently(int fd, std::string_view text, milliseconds patience) {
    if (fcntl(fd, F_GETFD) < 0) return false;  // poll(2) would wait for a negative one
    const bool terminal = isatty(fd) == 1;
    milliseconds left = patience;
    while (!text.empty()) {
        pollfd room{fd, POLLOUT, 0};
        const milliseconds wait = std::min(left, kLookAgain);
        const int ready = poll(&room, 1, static_cast<int>(wait.count()));
        if (ready == 0) {
            left -= wait;
            if (left.count() > 0) continue;
            errno = ETIMEDOUT;
        }
        const size_t piece =
                terminal ? terminalPiece(text) : std::min<size_t>(text.size(), PIPE_BUF);
        const ssize_t written = ready <= 0 ? -1 : write(fd, text.data(), piece);
        if (written > 0) {
            text.remove_prefix(static_cast<size_t>(written));
            left = patience;
        } else if (written == 0 || (errno != EINTR && errno != EAGAIN)) {
            return false;
        }
    }
    return true;
}

}  // namespace android::chre
