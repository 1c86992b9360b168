#include "report_writer.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>

namespace tev::dumpstate {
namespace {

constexpr int kPatienceMillis = 5000;

// A pipe that poll(2) calls writable has room for PIPE_BUF bytes: more than that may block, and the
// descriptor is the caller's, whose flags are not ours to change. A file takes anything.
size_t PieceOf(int fd) {
    struct stat status {};
    if (fstat(fd, &status) != 0) return 0;
    return S_ISREG(status.st_mode) ? SIZE_MAX : PIPE_BUF;
}

}  // namespace

// The text's memory stays as it is found: most writers hold a few lines.
ReportWriter::ReportWriter(int fd) : fd_(fd), piece_(PieceOf(fd)), lost_(piece_ == 0) {}

char* ReportWriter::BeginLine() {
    if (text_.size() - size_ < kLongestLine) Flush();
    return text_.data() + size_;
}

void ReportWriter::Print(const char* format, ...) {
    char* const line = BeginLine();
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(line, kLongestLine, format, arguments);
    va_end(arguments);
    EndLine(line + std::clamp<int>(length, 0, kLongestLine - 1));
}

bool ReportWriter::WaitWritable() const {
    pollfd writable{fd_, POLLOUT, 0};
    int ready = 0;
    do {
        ready = poll(&writable, 1, kPatienceMillis);
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

void ReportWriter::Flush() {
    const char* next = text_.data();
    const char* const end = next + size_;
    size_ = 0;
    while (next != end && !lost_) {
        const size_t piece = std::min(static_cast<size_t>(end - next), piece_);
        const ssize_t written = WaitWritable() ? write(fd_, next, piece) : 0;
        if (written > 0) {
            next += written;
        } else {
            // Where somebody else filled it between the poll and the write, the next poll waits.
            lost_ = written == 0 || (errno != EINTR && errno != EAGAIN);
        }
    }
}

}  // namespace tev::dumpstate
