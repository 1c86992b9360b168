#pragma once

#include <chrono>
#include <cstdint>

#include "last_line.h"
#include "platform/bounded_write.h"

namespace android::os::dumpstate {

// What one copy came to. Not having reached the end of the input shows in one of the first three.
struct CopyResult {
    int read_error = 0;
    int write_error = 0;
    bool timed_out = false;
};

// Copies a regular file's next `size` bytes inside the kernel where the kernel can do that. Gives
// up when `out` has taken nothing for `stall`. What was copied is added to the last line.
CopyResult CopyRegularFile(int in, int out, uint64_t size, std::chrono::milliseconds stall,
                           LastLine& last_line);

// Copies what the pipe yields until its end or the deadline, and adds it to the last line.
CopyResult CopyPipe(int in, int out, platform::Deadline deadline, LastLine& last_line);

}  // namespace android::os::dumpstate
