#include <android-base/properties.h>
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "platform/bounded_write.h"

namespace android::base {
namespace {

constexpr std::string_view kDirectory = "/dev/__properties__/";
constexpr size_t kLongestValue = size_t{64} * 1024;

// A waiter looks this often, whatever inotify says: there may be no watch or descriptor left, and
// the directory missing or another one.
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

// Links rather than renames a "ro." key: link(2) fails where the name exists, and that is the test
// that no second writer can slip past.
bool Publish(const std::string& key, const std::string& unfinished) {
    if (key.starts_with("ro.")) return link(unfinished.c_str(), PathOf(key).c_str()) == 0;
    return rename(unfinished.c_str(), PathOf(key).c_str()) == 0;
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
    const std::string text = GetProperty(key, " ");
    // Of what strtoll() reads, white space at the beginning is none of an integer's.
    if (std::isspace(static_cast<unsigned char>(text.front())) != 0) return default_value;
    const bool hex = text.find_first_of("xX") != std::string::npos;
    char* end = nullptr;
    errno = 0;
    const long long value = std::strtoll(text.c_str(), &end, hex ? 16 : 10);
    const bool whole = errno == 0 && end == text.c_str() + text.size();
    return whole && value >= min && value <= max ? static_cast<T>(value) : default_value;
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
    std::string unfinished = PathOf("." + key + ".XXXXXX");
    const unique_fd fd(mkostemp(unfinished.data(), O_CLOEXEC));
    if (fd.get() < 0) return false;
    int error = platform::WriteWithin(std::chrono::hours(1), fd.get(), value);
    // Everybody may read a property, whatever umask its writer runs under.
    if (error == 0 && (fchmod(fd.get(), 0644) != 0 || !Publish(key, unfinished))) error = errno;
    unlink(unfinished.c_str());
    errno = error;
    return error == 0;
}

bool WaitForProperty(const std::string& key, const std::string& expected_value,
                     std::chrono::milliseconds relative_timeout) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    for (;;) {
        // Watched before it is looked at, so that no change falls between the two, and anew each
        // time, as the directory itself may have been replaced.
        const unique_fd watch(inotify_init1(IN_CLOEXEC));
        inotify_add_watch(watch.get(), PathOf("").c_str(),
                          IN_MOVED_TO | IN_CREATE | IN_CLOSE_WRITE | IN_DELETE);
        if (Read(key).value_or("") == expected_value) return true;
        const auto passed = std::chrono::floor<std::chrono::milliseconds>(Clock::now() - start);
        if (passed >= relative_timeout) return false;
        pollfd change{watch.get(), POLLIN, 0};
        poll(&change, 1, static_cast<int>(std::min(relative_timeout - passed, kLookAgain).count()));
    }
}

}  // namespace android::base
