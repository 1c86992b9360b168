#pragma once

#include <android-base/unique_fd.h>
#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace android::chre {

// Writes to a descriptor that somebody else owns and may have left blocking, without ever blocking
// on it: the one way in which the service itself writes to reports and standard streams. The flags
// of a descriptor are shared with whoever else holds the file, so they are not ours to change; and
// poll(2) is no help alone, as somebody else may take the room between the poll and the write, and
// a terminal may have room for a single byte.
//
// A reader that takes nothing for as long as it is waited for is stuck. No object of this process
// waits for it again before it has taken something.
//
// SIGPIPE must not end the process.
class NonblockingOutput {
  public:
    // The descriptor has to stay open for as long as this lives, or until it no longer Is().
    explicit NonblockingOutput(int fd);

    // Whether that descriptor is the file that this was made for.
    bool Is(int fd) const;

    // Writes the whole text. Waits for room for that long at the most, and anew after each piece
    // that was taken. False, with errno set, when a rest is lost: ETIMEDOUT for a stuck reader.
    bool Write(std::string_view text, std::chrono::milliseconds patience) const;

  private:
    struct File {
        dev_t device = 0;
        ino_t inode = 0;
        bool operator==(const File&) const = default;
    };
    class StuckReaders;
    static StuckReaders stuck_readers_;

    bool WaitForRoom(std::chrono::steady_clock::time_point deadline) const;
    ssize_t WriteSome(std::string_view text) const;

    const int fd_;
    int error_ = 0;  // of a descriptor that isn't open
    File file_;
    bool socket_ = false;
    size_t most_ = SIZE_MAX;    // what one write may hold, if it must be asked for room before
    base::unique_fd reopened_;  // the same pipe or terminal, not blocking
};

}  // namespace android::chre
