#pragma once

#include <chrono>
#include <string_view>

namespace platform {

using Deadline = std::chrono::steady_clock::time_point;

// Milliseconds until the deadline for poll(2), rounded up so that a wait never ends early.
int PollTimeout(Deadline deadline);

// Writes the whole text to any kind of descriptor, blocking or not. Waits that long for a reader
// that takes nothing, and anew after each piece that it has taken. Returns 0, or an errno when a
// rest is lost: ETIMEDOUT where the reader has stopped. SIGPIPE must not end the process.
//
// No more is written at once than poll(2) has promised room for, so that nothing blocks where
// nobody else writes.
int WriteWithin(std::chrono::milliseconds patience, int fd, std::string_view text);

// Puts /dev/null in the descriptor's place: nobody waits again for a reader that was waited for in
// vain, or meets one that is gone. What comes after is lost, and runs as usual.
void GiveUpReader(int fd);

}  // namespace platform
