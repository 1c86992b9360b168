#pragma once

#include <chrono>
#include <cstdint>
#include <limits>

#include "platform/bounded_write.h"

namespace android::os::dumpstate {

// What one copy came to. Not having reached the end of the input shows in one of the first three.
struct CopyResult {
    int read_error = 0;
    int write_error = 0;
    bool timed_out = false;
    bool ends_line = true;  // nothing was copied, or a newline came last
};

inline constexpr uint64_t kToTheEnd = std::numeric_limits<uint64_t>::max();

// Copies a regular file's first `size` bytes inside the kernel where the kernel can do that. Gives
// up when `out` has taken nothing for `stall`.
CopyResult CopyRegularFile(int in, int out, uint64_t size, std::chrono::milliseconds stall);

// Copies what the pipe yields until its end or the deadline.
CopyResult CopyPipe(int in, int out, platform::Deadline deadline);

}  // namespace android::os::dumpstate
