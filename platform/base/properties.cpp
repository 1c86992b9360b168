#include <android-base/properties.h>
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <optional>
#include <string_view>

#include "platform/bounded_write.h"

namespace android::base {
namespace {

constexpr std::string_view kDirectory = "/dev/__properties__/";
constexpr size_t kLongestValue = size_t{64} * 1024;

// Without inotify (no watches or descriptors left, directory missing) a waiter looks this often.
constexpr std::chrono::milliseconds kLookAgain{100};

// A leading dot is kept for files that are being written.
bool IsKey(std::string_view key) {
    constexpr std::string_view kPunctuation = "._-@:";
    return !key.empty() && key.size() <= NAME_MAX - 32 && key.front() != '.' &&
           std::ranges::all_of(key, [&](char c) {
               return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                      kPunctuation.find(c) != std::string_view::npos;
           });
}

std::string PathOf(std::string_view name) {
    return std::string(kDirectory).append(name);
}

// A property is a small regular file; anything else under its name (a FIFO, a directory, a file
// that has grown without bounds) is unset.
std::optional<std::string> Read(const std::string& key) {
    if (!IsKey(key)) return std::nullopt;
    const unique_fd fd(open(PathOf(key).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (fd.get() < 0 || fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    std::string value;
    std::array<char, 256> part;
    for (;;) {
        const ssize_t size = read(fd.get(), part.data(), part.size());
        if (size > 0) {
            if (value.size() > kLongestValue) return std::nullopt;
            value.append(part.data(), static_cast<size_t>(size));
        } else if (size == 0) {
            return value;
        } else if (errno != EINTR) {
            return std::nullopt;
        }
    }
}

// Named after process and count, so that no two writers share one.
std::string NameOfUnfinished(const std::string& key) {
    static std::atomic<unsigned> count{0};
    return PathOf("." + key + "." + std::to_string(getpid()) + "." + std::to_string(count++));
}

// Everybody may read a property, whatever umask its writer runs under.
bool WriteNewFile(const std::string& path, const std::string& value) {
    constexpr mode_t kMode = 0644;
    const unique_fd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kMode));
    if (fd.get() < 0 || fchmod(fd.get(), kMode) != 0) return false;
    const int error = platform::WriteUntil(fd.get(), value, platform::Deadline::max());
    if (error != 0) errno = error;
    return error == 0;
}

// Links rather than renames a "ro." key: link(2) fails where the name exists, and that is the test
// that no second writer can slip past.
bool Publish(const std::string& key, const std::string& unfinished) {
    if (key.starts_with("ro.")) return link(unfinished.c_str(), PathOf(key).c_str()) == 0;
    return rename(unfinished.c_str(), PathOf(key).c_str()) == 0;
}

// A watch on the property directory, if one is to be had.
class Watch {
  public:
    Watch() : fd_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
        constexpr uint32_t kChanges = IN_MOVED_TO | IN_CREATE | IN_CLOSE_WRITE | IN_DELETE;
        alive_ = fd_.get() >= 0 && inotify_add_watch(fd_.get(), PathOf("").c_str(), kChanges) >= 0;
    }

    // Waits until something has changed or the deadline has passed.
    void Wait(platform::Deadline deadline) {
        if (!alive_) {
            const auto now = std::chrono::steady_clock::now();
            deadline = std::min(deadline, now + kLookAgain);
        }
        pollfd change{alive_ ? fd_.get() : -1, POLLIN, 0};
        poll(&change, 1, platform::PollTimeout(deadline));
        // The caller looks at the value itself: what has changed doesn't count.
        std::array<char, 4096> events;
        while (alive_ && read(fd_.get(), events.data(), events.size()) > 0) {
        }
    }

  private:
    const unique_fd fd_;
    bool alive_;
};

bool ParseInteger(const std::string& text, bool* negative, unsigned long long* magnitude) {
    std::string_view digits = text;
    *negative = digits.starts_with('-');
    if (*negative || digits.starts_with('+')) digits.remove_prefix(1);
    const bool hex = digits.starts_with("0x") || digits.starts_with("0X");
    if (hex) digits.remove_prefix(2);
    const char* end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, *magnitude, hex ? 16 : 10);
    return error == std::errc{} && stop == end;
}

}  // namespace

std::string GetProperty(const std::string& key, const std::string& default_value) {
    const std::optional<std::string> value = Read(key);
    return value && !value->empty() ? *value : default_value;
}

bool GetBoolProperty(const std::string& key, bool default_value) {
    constexpr std::string_view kTrue[] = {"1", "y", "yes", "on", "true"};
    constexpr std::string_view kFalse[] = {"0", "n", "no", "off", "false"};
    const std::string value = GetProperty(key, "");
    if (std::ranges::find(kTrue, value) != std::end(kTrue)) return true;
    if (std::ranges::find(kFalse, value) != std::end(kFalse)) return false;
    return default_value;
}

template <typename T>
T GetIntProperty(const std::string& key, T default_value, T min, T max) {
    bool negative = false;
    unsigned long long magnitude = 0;
    if (!ParseInteger(GetProperty(key, ""), &negative, &magnitude)) return default_value;
    constexpr auto kMost = static_cast<unsigned long long>(std::numeric_limits<long long>::max());
    if (magnitude > kMost + (negative ? 1 : 0)) return default_value;
    // The most negative number has no positive twin: step over it.
    const long long value = !negative        ? static_cast<long long>(magnitude)
                            : magnitude == 0 ? 0
                                             : -static_cast<long long>(magnitude - 1) - 1;
    if (value < min || value > max) return default_value;
    return static_cast<T>(value);
}

template int8_t GetIntProperty(const std::string&, int8_t, int8_t, int8_t);
template int16_t GetIntProperty(const std::string&, int16_t, int16_t, int16_t);
template int32_t GetIntProperty(const std::string&, int32_t, int32_t, int32_t);
template int64_t GetIntProperty(const std::string&, int64_t, int64_t, int64_t);

bool SetProperty(const std::string& key, const std::string& value) {
    if (!IsKey(key)) {
        errno = EINVAL;
        return false;
    }
    const std::string unfinished = NameOfUnfinished(key);
    const bool set = WriteNewFile(unfinished, value) && Publish(key, unfinished);
    const int error = errno;
    unlink(unfinished.c_str());
    errno = error;
    return set;
}

bool WaitForProperty(const std::string& key, const std::string& expected_value,
                     std::chrono::milliseconds relative_timeout) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    const auto most =
            std::chrono::duration_cast<std::chrono::milliseconds>(Clock::time_point::max() - start);
    const Clock::time_point deadline =
            relative_timeout >= most ? Clock::time_point::max() : start + relative_timeout;
    Watch watch;
    for (;;) {
        if (Read(key).value_or("") == expected_value) return true;
        if (Clock::now() >= deadline) return false;
        watch.Wait(deadline);
    }
}

}  // namespace android::base
