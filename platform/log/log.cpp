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
#include <ctime>
#include <functional>
#include <mutex>
#include <new>
#include <string>
#include <string_view>

#include "platform/bounded_write.h"
#include "platform/printable.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kLogPatience{100};
// What goes on being counted is told as often as this.
constexpr std::chrono::seconds kTellInterval{10};

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

// How many records of one tag may still come at once.
class Allowance {
  public:
    bool Take(Clock::time_point now) {
        const auto since = std::chrono::floor<std::chrono::milliseconds>(now - refilled_) / kEach;
        left_ = static_cast<int>(std::min<int64_t>(left_ + since, kMost));
        refilled_ += since * kEach;
        return left_ > 0 && left_-- > 0;
    }

  private:
    // Far more than any report that isn't flooded.
    static constexpr int kMost = 10'000;
    static constexpr std::chrono::milliseconds kEach{10};

    int left_ = kMost;
    Clock::time_point refilled_;
};

std::string Counted(uint64_t count, const char* what) {
    return std::to_string(count) + what;
}

// What the process has told its log, and what it has only counted.
class Log {
  public:
    // As __android_log_print().
    int Write(int priority, const char* tag, const std::string& message) {
        const std::lock_guard lock(mutex_);
        const Clock::time_point now = Clock::now();
        const bool repeats =
                priority == last_priority_ && tag == last_tag_ && message == last_message_;
        if (repeats) {
            ++repeats_;
            if (now - told_ < kTellInterval) return 0;
        } else if (!AllowanceOf(priority, tag).Take(now)) {
            ++left_out_;
            return 0;
        }
        const uint64_t left_out = left_out_;
        std::string text = WhatWasCounted(now);
        if (!repeats) {
            text += Record(priority, tag, message);
            last_priority_ = priority;
            last_tag_ = tag;
            last_message_ = message;
        }
        const int error = platform::WriteUntil(STDERR_FILENO, text, now + kLogPatience);
        const uint64_t told = repeats_ + (left_out - left_out_) + (repeats ? 0 : 1);
        lost_ = error == 0 ? 0 : lost_ + told;
        repeats_ = 0;
        if (error != 0) {
            last_message_.clear();  // nobody has seen it
            return -error;
        }
        told_ = now;
        return repeats ? 0 : 1;
    }

  private:
    Allowance& AllowanceOf(int priority, std::string_view tag) {
        const size_t number = std::hash<std::string_view>()(tag) + static_cast<size_t>(priority);
        return allowances_[number % allowances_.size()];
    }

    std::string WhatWasCounted(Clock::time_point now) {
        std::string text;
        if (lost_ > 0) {
            text += Record(ANDROID_LOG_WARN, "log",
                           Counted(lost_, " records lost: the log's reader had stopped"));
        }
        if (repeats_ > 0) {
            text += Record(last_priority_, last_tag_.c_str(),
                           Counted(repeats_, " times more the same as before"));
        }
        if (left_out_ > 0 && now - left_out_told_ >= kTellInterval) {
            text += Record(ANDROID_LOG_WARN, "log",
                           Counted(left_out_, " records left out: more than anybody reads"));
            left_out_ = 0;
            left_out_told_ = now;
        }
        return text;
    }

    std::mutex mutex_;
    // By tag and priority, so that one's flood is not another's, and debugging's not an error's.
    std::array<Allowance, 61> allowances_;
    int last_priority_ = ANDROID_LOG_UNKNOWN;
    std::string last_tag_;
    std::string last_message_;
    uint64_t repeats_ = 0;
    uint64_t left_out_ = 0;
    uint64_t lost_ = 0;
    Clock::time_point told_;
    Clock::time_point left_out_told_;
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
