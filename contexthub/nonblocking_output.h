#pragma once

#include <android-base/unique_fd.h>
#include <sys/types.h>

#include <cstddef>

namespace android::chre {

// Writes to a descriptor that somebody else owns and may have left blocking, without ever blocking
// on it. Its flags are shared with whoever else holds the file, so they are not ours to change; and
// poll(2) is no help alone, as somebody else may take the room between the poll and the write, and
// a terminal may have room for a single byte.
class NonblockingOutput {
  public:
    // The descriptor has to stay open for as long as this lives.
    explicit NonblockingOutput(int fd);

    // Waits for room. False, with errno set, when there was none in time (ETIMEDOUT), or when there
    // will be none, as the reader has gone (EPIPE) or the descriptor isn't open (EBADF).
    bool WaitWritable(int milliseconds) const;

    // As write(2), but fails with EAGAIN where that would wait; may write a part.
    ssize_t Write(const void* data, size_t size) const;

  private:
    const int fd_;
    bool socket_ = false;
    size_t most_ = 0;           // what one write may hold; 0 for no open descriptor
    base::unique_fd reopened_;  // the same pipe or device, not blocking
};

}  // namespace android::chre
