#include "host_log.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "patient_write.h"

namespace android::chre {
namespace {

constexpr char kTag[] = "CHRE";
constexpr std::chrono::milliseconds kCopyPatience{100};

// What doesn't go is lost: there is nobody to tell.
void WriteCopy(std::FILE* stream, std::string_view copy) {
    if (const int fd = fileno(stream); fd >= 0) {
        writePatiently(fd, copy, kCopyPatience);
    } else {  // a stream in memory
        std::fwrite(copy.data(), 1, copy.size(), stream);
        std::fflush(stream);
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
    WriteCopy(stream, {copy, length});
    errno = error;
}

void outputHostLogErrno(const char* message, const char* operation, int line, int error) {
    char text[64] = {};
    std::snprintf(text, sizeof text, "%s", std::strerror(error));
    outputHostLog(ANDROID_LOG_ERROR, stderr, "%s: %s (%d)\n", operation, line, message, text,
                  error);
}

}  // namespace android::chre
