#include "copy.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace android::os::dumpstate {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr size_t kBuffer = size_t{128} * 1024;
// One call moves this much at the most, so that a stalled reader is noticed between two calls.
constexpr uint64_t kMove = uint64_t{8} * 1024 * 1024;

class Buffer {
  public:
    // Reads up to `most` bytes. Negative on failure, with errno.
    ssize_t Fill(int in, uint64_t most = kBuffer) {
        const auto wanted = static_cast<size_t>(std::min<uint64_t>(most, kBuffer));
        ssize_t size;
        do {
            size = read(in, bytes_.get(), wanted);
        } while (size < 0 && errno == EINTR);
        size_ = size > 0 ? static_cast<size_t>(size) : 0;
        return size;
    }
    std::string_view bytes() const { return {bytes_.get(), size_}; }

  private:
    const std::unique_ptr<char[]> bytes_ = std::make_unique_for_overwrite<char[]>(kBuffer);
    size_t size_ = 0;
};

// True when the error ends the copy.
bool Deliver(const Buffer& buffer, int out, platform::Deadline deadline, CopyResult& result,
             LastLine& last_line) {
    const int error = platform::WriteUntil(out, buffer.bytes(), deadline);
    last_line.Add(buffer.bytes());
    // Of what went only in part nobody knows how it ended.
    if (error != 0) last_line.Add("?");
    result.timed_out = error == ETIMEDOUT;
    if (!result.timed_out) result.write_error = error;
    return error != 0;
}

// Moves up to `most` bytes without bringing them into this process; negative with errno where this
// pair of descriptors can't. A pipe's own size bounds each splice, and the flag keeps it from
// blocking even on a blocking pipe.
ssize_t MoveInKernel(int in, int out, mode_t out_type, uint64_t most) {
    const auto size = static_cast<size_t>(std::min(most, kMove));
    if (S_ISFIFO(out_type)) return splice(in, nullptr, out, nullptr, size, SPLICE_F_NONBLOCK);
    if (S_ISREG(out_type)) return sendfile(out, in, nullptr, size);
    errno = EINVAL;
    return -1;
}

// Adds the end of what was moved past this process, from `begin` to the file's position.
void AddMoved(int in, off_t begin, LastLine& last_line) {
    constexpr off_t kLongestLine = off_t{64} * 1024;  // a longer one is taken for no failure line
    const off_t end = lseek(in, 0, SEEK_CUR);
    const off_t from = std::max(begin, end - kLongestLine);
    if (end <= from) return;
    std::string tail(static_cast<size_t>(end - from), '?');
    if (pread(in, tail.data(), tail.size(), from) < 0) return;
    if (from > begin) last_line.Add("?");
    last_line.Add(tail);
}

}  // namespace

CopyResult CopyRegularFile(int in, int out, uint64_t size, milliseconds stall,
                           LastLine& last_line) {
    struct stat out_status {};
    if (fstat(out, &out_status) != 0) return {.write_error = errno};
    const off_t begin = lseek(in, 0, SEEK_CUR);
    CopyResult result;
    std::optional<platform::SigpipeGuard> guard;
    if (!S_ISREG(out_status.st_mode)) guard.emplace();
    while (size > 0) {
        const ssize_t moved = MoveInKernel(in, out, out_status.st_mode, size);
        if (moved > 0) {
            size -= static_cast<uint64_t>(moved);
        } else if (moved == 0) {
            break;  // shorter than it was
        } else if (errno == EAGAIN) {
            result.timed_out = !platform::WaitWritable(out, steady_clock::now() + stall);
            if (result.timed_out) break;
        } else if (errno != EINTR) {
            break;
        }
    }
    AddMoved(in, begin, last_line);
    if (result.timed_out || size == 0) return result;

    // Here the kernel can't, or something failed: reading and writing apart tells on which side.
    Buffer buffer;
    while (size > 0) {
        const ssize_t got = buffer.Fill(in, size);
        if (got < 0) result.read_error = errno;
        if (got <= 0 || Deliver(buffer, out, steady_clock::now() + stall, result, last_line)) break;
        size -= static_cast<uint64_t>(got);
    }
    return result;
}

CopyResult CopyPipe(int in, int out, platform::Deadline deadline, LastLine& last_line) {
    CopyResult result;
    Buffer buffer;
    for (;;) {
        pollfd readable{in, POLLIN, 0};
        if (poll(&readable, 1, platform::PollTimeout(deadline)) == 0) {
            result.timed_out = true;
            return result;
        }
        const ssize_t got = buffer.Fill(in);
        if (got < 0) result.read_error = errno;
        if (got <= 0 || Deliver(buffer, out, deadline, result, last_line)) return result;
    }
}

}  // namespace android::os::dumpstate
