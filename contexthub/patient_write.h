#pragma once

#include <chrono>
#include <string_view>

namespace android::chre {

// Writes the whole text to a descriptor that is somebody else's, blocking or not: reports and
// standard streams. Waits that long for a reader that takes nothing, and anew after each piece that
// it has taken. False, with errno set, when a rest is lost: ETIMEDOUT where the reader has stopped.
// SIGPIPE must not end the process.
//
// No more is written at once than poll(2) has promised room for, so that nothing blocks where
// nobody else writes.
bool writePatiently(int fd, std::string_view text, std::chrono::milliseconds patience);

}  // namespace android::chre
