#include <android/log.h>
#include <errno.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <new>
#include <string>
#include <string_view>

#include "platform/bounded_write.h"
#include "platform/printable.h"

namespace {

constexpr std::chrono::milliseconds kPatience{100};

char PriorityLetter(int priority) {
    constexpr std::string_view kLetters = "??VDIWEF";
    return kLetters[static_cast<size_t>(std::clamp(priority, 0, 7))];
}

std::string Format(const char* format, va_list arguments) {
    std::array<char, 1024> line;
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(line.data(), line.size(), format, arguments);
    std::string message;
    if (length < 0) {
        message = format;
    } else if (static_cast<size_t>(length) < line.size()) {
        message.assign(line.data(), static_cast<size_t>(length));
    } else {
        message.resize(static_cast<size_t>(length) + 1);
        std::vsnprintf(message.data(), message.size(), format, again);
        message.pop_back();
    }
    va_end(again);
    message.erase(message.find_last_not_of('\n') + 1);
    return message;
}

std::string Stamp(int priority) {
    timeval now{};
    gettimeofday(&now, nullptr);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    std::array<char, 96> stamp;
    std::snprintf(stamp.data(), stamp.size(), "%02d-%02d %02d:%02d:%02d.%03d  %d  %ld %c ",
                  local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                  static_cast<int>(now.tv_usec / 1000), getpid(), syscall(SYS_gettid),
                  PriorityLetter(priority));
    return stamp.data();
}

int Write(int priority, const char* tag, const char* format, va_list arguments) {
    const std::string message = Format(format, arguments);
    std::string record = Stamp(priority);
    platform::AppendPrintable(record, tag != nullptr ? tag : program_invocation_short_name);
    record += ": ";
    platform::AppendPrintable(record, message);
    record += '\n';
    return -platform::WriteUntil(STDERR_FILENO, record,
                                 std::chrono::steady_clock::now() + kPatience);
}

}  // namespace

int __android_log_vprint(int priority, const char* tag, const char* format, va_list arguments) {
    const int caller_errno = errno;
    int error = -ENOMEM;
    try {
        error = Write(priority, tag, format, arguments);
    } catch (const std::bad_alloc&) {
        // The record is lost; who logs is often about to cope with this very lack.
    }
    errno = caller_errno;
    return error == 0 ? 1 : error;
}

int __android_log_print(int priority, const char* tag, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = __android_log_vprint(priority, tag, format, arguments);
    va_end(arguments);
    return result;
}
