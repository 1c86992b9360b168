#include <android/log.h>
#include <errno.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "platform/bounded_write.h"
#include "platform/printable.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr std::chrono::milliseconds kLogPatience{100};

char PriorityLetter(int priority) {
    constexpr std::string_view kLetters = "??VDIWEF";
    return kLetters[static_cast<size_t>(std::clamp(priority, 0, 7))];
}

std::string Format(const char* format, va_list arguments) {
    char* text = nullptr;
    const int length = vasprintf(&text, format, arguments);
    if (length < 0) return format;
    const std::unique_ptr<char, decltype(&std::free)> owner(text, std::free);
    std::string message(text, static_cast<size_t>(length));
    message.erase(message.find_last_not_of('\n') + 1);
    return message;
}

std::string Record(int priority, const char* tag, std::string_view message) {
    timeval now{};
    gettimeofday(&now, nullptr);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    std::array<char, 96> stamp;
    std::snprintf(stamp.data(), stamp.size(), "%02d-%02d %02d:%02d:%02d.%03d  %d  %ld %c ",
                  local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                  static_cast<int>(now.tv_usec / 1000), getpid(), syscall(SYS_gettid),
                  PriorityLetter(priority));
    std::string record = stamp.data();
    platform::AppendPrintable(record, tag);
    record += ": ";
    platform::AppendPrintable(record, message);
    return record += '\n';
}

// How many records may still come at once: 10,000, far more than any report that isn't flooded, and
// 100 more each second.
class Allowance {
  public:
    bool Take(Clock::time_point now) {
        const std::chrono::duration<double> since = now - std::exchange(asked_, now);
        left_ = std::min(left_ + 100 * since.count(), 10'000.0);
        if (left_ < 1) return false;
        --left_;
        return true;
    }

  private:
    double left_ = 10'000;
    Clock::time_point asked_;
};

class Log {
  public:
    // As __android_log_print().
    int Write(int priority, const char* tag, std::string_view message) {
        const std::lock_guard lock(mutex_);
        const Clock::time_point now = Clock::now();
        if (!AllowanceOf(priority, tag).Take(now)) {
            ++missing_;
            return 0;
        }
        std::string text;
        if (missing_ > 0) {
            const std::string told = std::to_string(missing_) +
                                     " records are missing here: the log's reader had stopped, or "
                                     "they were more than anybody reads";
            text = Record(ANDROID_LOG_WARN, "log", told);
        }
        text += Record(priority, tag, message);
        // A reader that was waited for in vain is waited for again once it has taken something.
        const int error = platform::WriteWithin(stopped_ ? 0ms : kLogPatience, STDERR_FILENO, text);
        stopped_ = error == ETIMEDOUT;
        missing_ = error == 0 ? 0 : missing_ + 1;
        return error == 0 ? 1 : -error;
    }

  private:
    // By tag and priority, so that one's flood is not another's, and debugging's not an error's.
    Allowance& AllowanceOf(int priority, std::string_view tag) {
        const size_t number = std::hash<std::string_view>()(tag) + static_cast<size_t>(priority);
        return allowances_[number % allowances_.size()];
    }

    std::mutex mutex_;
    std::array<Allowance, 61> allowances_;
    uint64_t missing_ = 0;  // since the last record that was written
    bool stopped_ = false;
};

// Never destroyed: whoever outlives the others may log.
Log& TheLog() {
    static Log& log = *new Log;
    return log;
}

}  // namespace

int __android_log_vprint(int priority, const char* tag, const char* format, va_list arguments) {
    const int caller_errno = errno;
    int result = -ENOMEM;
    try {
        result = TheLog().Write(priority, tag != nullptr ? tag : program_invocation_short_name,
                                Format(format, arguments));
    } catch (const std::bad_alloc&) {
        // The record is lost; who logs is often about to cope with this very lack.
    }
    errno = caller_errno;
    return result;
}

int __android_log_print(int priority, const char* tag, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = __android_log_vprint(priority, tag, format, arguments);
    va_end(arguments);
    return result;
}
