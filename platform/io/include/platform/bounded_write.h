#pragma once

#include <chrono>
#include <cstddef>
#include <string_view>

namespace platform {

using Deadline = std::chrono::steady_clock::time_point;

// Milliseconds until the deadline for poll(2), rounded up so that a wait never ends early.
int PollTimeout(Deadline deadline);

// Waits until fd takes bytes, has failed, or the deadline has passed. False only for the last.
bool WaitWritable(int fd, Deadline deadline);

// Writes the whole text to any kind of descriptor, blocking or not, and gives up at the deadline,
// whatever the reader does. A peer that is gone is EPIPE and never a signal. Returns 0 or an errno;
// ETIMEDOUT when the deadline passed with bytes left.
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
