#pragma once

#include <android/log.h>

#include <cstdio>

namespace android::chre {

// Writes one record to the system log, tagged "CHRE", and a copy of it to the stream as
// "operation:line: message" and a newline. Records of several threads never mix in the stream.
//
// The copy is a convenience and holds nobody up: it goes past the stream's buffer, a reader that
// has stopped costs 100 ms and the copy, one that is gone the copy, and SIGPIPE must not end the
// process. What is longer than a kilobyte is cut there. Keeps errno.
void outputHostLog(int priority, std::FILE* stream, const char* format, const char* operation,
                   int line, ...) __attribute__((__format__(printf, 3, 6)));

// The same for a failed system call: the message, the error's text and its number.
void outputHostLogErrno(const char* message, const char* operation, int line, int error);

}  // namespace android::chre

// Each takes the operation's name, which a helper shares with the operation it helps, then a printf
// format and its arguments; LOG_ERRNO takes a message.
#define LOG_RECORD(priority, stream, operation, format, ...)            \
    ::android::chre::outputHostLog(priority, stream, format, operation, \
                                   __LINE__ __VA_OPT__(, ) __VA_ARGS__)
#define LOGE(operation, ...) LOG_RECORD(ANDROID_LOG_ERROR, stderr, operation, __VA_ARGS__)
#define LOGW(operation, ...) LOG_RECORD(ANDROID_LOG_WARN, stdout, operation, __VA_ARGS__)
#define LOGI(operation, ...) LOG_RECORD(ANDROID_LOG_INFO, stdout, operation, __VA_ARGS__)
#define LOGD(operation, ...) LOG_RECORD(ANDROID_LOG_DEBUG, stdout, operation, __VA_ARGS__)
#define LOG_ERRNO(operation, message) \
    ::android::chre::outputHostLogErrno(message, operation, __LINE__, errno)
