#include "host_log.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstring>

#include "nonblocking_output.h"

namespace android::chre {
namespace {

constexpr char kTag[] = "CHRE";
constexpr int kPatienceMs = 100;

void WriteCopy(std::FILE* stream, const char* copy, size_t length) {
    const int fd = fileno(stream);
    if (fd < 0) {  // a stream in memory
        std::fwrite(copy, 1, length, stream);
        std::fflush(stream);
    } else if (const NonblockingOutput output(fd); output.WaitWritable(kPatienceMs)) {
        std::fflush(stream);
        // What doesn't go is lost, and so is the result: there is nobody to tell.
        [[maybe_unused]] const ssize_t written = output.Write(copy, length);
    }
}

}  // namespace

void outputHostLog(int priority, std::FILE* stream, const char* format, const char* operation,
                   int line, ...) {
    const int error = errno;
    va_list arguments;
    va_start(arguments, line);
    va_list again;
    va_copy(again, arguments);
    __android_log_vprint(priority, kTag, format, arguments);
    va_end(arguments);

    // In one piece, so that what other threads and the system log write to the same place stays
    // outside of it.
    char copy[1024];
    constexpr size_t kMost = sizeof copy - 1;
    size_t length = 0;
    const auto advance = [&length](int added) {
        if (added > 0) length = std::min(length + static_cast<size_t>(added), kMost - 1);
    };
    advance(std::snprintf(copy, kMost, "%s:%d: ", operation, line));
    advance(std::vsnprintf(copy + length, kMost - length, format, again));
    va_end(again);
    copy[length++] = '\n';
    WriteCopy(stream, copy, length);
    errno = error;
}

void outputHostLogErrno(const char* message, const char* operation, int line, int error) {
    char text[64] = {};
    std::snprintf(text, sizeof text, "%s", std::strerror(error));
    outputHostLog(ANDROID_LOG_ERROR, stderr, "%s: %s (%d)\n", operation, line, message, text,
                  error);
}

}  // namespace android::chre
