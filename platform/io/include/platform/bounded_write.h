#pragma once

#include <chrono>
#include <cstddef>
#include <string_view>

namespace platform {

// A reader that takes nothing for as long as somebody waits for it is stuck. A pipe is then made as
// large as the kernel lets anybody, once, so that a reader that only paused misses nothing. Where
// that is no help, nobody waits for this reader again, whoever writes, before it has taken
// something: what can't be written at once is lost.

using Deadline = std::chrono::steady_clock::time_point;

// Milliseconds until the deadline for poll(2), rounded up so that a wait never ends early.
int PollTimeout(Deadline deadline);

// Waits until fd takes bytes, has failed, or the deadline has passed. False only for the last, and
// at once for a stuck reader.
bool WaitWritable(int fd, Deadline deadline);

// Makes a full pipe larger, for whoever waits for room in it. False when there is still none.
bool MakeRoom(int fd);

// Writes the whole text to any kind of descriptor, blocking or not, and gives up at the deadline,
// whatever the reader does. A peer that is gone is EPIPE and never a signal. Returns 0 or an errno
// when bytes are left: ETIMEDOUT when the deadline has passed, EAGAIN when nobody waited, as the
// reader was stuck already.
int WriteUntil(int fd, std::string_view text, Deadline deadline);

// Holds SIGPIPE back from the calling thread while a system call that knows no MSG_NOSIGNAL writes,
// and discards the one that such a call raised.
class SigpipeGuard {
  public:
    SigpipeGuard();
    ~SigpipeGuard();
    SigpipeGuard(const SigpipeGuard&) = delete;
    SigpipeGuard& operator=(const SigpipeGuard&) = delete;

  private:
    bool engaged_ = false;  // false where it was blocked already and so is not ours to discard
};

}  // namespace platform
