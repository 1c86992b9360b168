#include "recording_platform.h"

#include <DumpstateUtil.h>
#include <android-base/properties.h>
#include <android/log.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <thread>

namespace {

std::mutex g_mutex;
std::condition_variable g_logged;
const std::thread::id g_test_thread = std::this_thread::get_id();

}  // namespace

RecordingPlatform& ThePlatform() {
    static RecordingPlatform platform;
    return platform;
}

namespace {

void Record(int fd, const std::vector<std::string>& parts) {
    std::string line = fd == STDOUT_FILENO ? "stdout " : "";
    for (const std::string& part : parts) {
        if (&part != &parts.front()) line += '\t';
        for (const char c : part) line += c == '\n' ? std::string("\\n") : std::string(1, c);
    }
    const std::lock_guard lock(g_mutex);
    const bool here = std::this_thread::get_id() == g_test_thread;
    (here ? ThePlatform().requests : ThePlatform().elsewhere).push_back(line);
    if (fd >= 0 && fd != STDOUT_FILENO) ThePlatform().descriptors.push_back(fd);
}

std::string Property(const std::string& key) {
    const std::lock_guard lock(g_mutex);
    if (ThePlatform().on_property != nullptr) ThePlatform().on_property(key, false);
    const auto found = ThePlatform().properties.find(key);
    return found == ThePlatform().properties.end() ? "" : found->second;
}

}  // namespace

std::vector<std::string> LogsOf(const std::string& tag) {
    const std::lock_guard lock(g_mutex);
    std::vector<std::string> logs;
    std::ranges::copy_if(
            ThePlatform().logs, std::back_inserter(logs),
            [&](const std::string& record) { return record.substr(2).starts_with(tag + " "); });
    return logs;
}

bool WaitForLog(const std::string& record) {
    std::unique_lock lock(g_mutex);
    return g_logged.wait_for(lock, std::chrono::seconds(10),
                             [&] { return std::ranges::count(ThePlatform().logs, record) > 0; });
}

namespace android::os::dumpstate {

const CommandOptions CommandOptions::DEFAULT = CommandOptions::WithTimeout(-12345).Build();

int RunCommandToFd(int fd, const std::string& title, const std::vector<std::string>& full_command,
                   const CommandOptions& options) {
    const bool is_default = options.Timeout() == CommandOptions::DEFAULT.Timeout();
    std::vector<std::string> parts{"command", title,
                                   is_default ? "default" : std::to_string(options.Timeout())};
    parts.insert(parts.end(), full_command.begin(), full_command.end());
    Record(fd, parts);
    if (ThePlatform().on_command != nullptr) ThePlatform().on_command(title);
    if (ThePlatform().echo_titles) dprintf(fd, "[%s]\n", title.c_str());
    return -1;  // every command fails, and nothing may come of it
}

int DumpFileToFd(int fd, const std::string& title, const std::string& path) {
    Record(fd, {"file", title, "-", path});
    return -1;
}

bool PropertiesHelper::IsUserBuild() {
    Record(-1, {"build type?"});
    return Property("ro.build.type") == "user";
}

}  // namespace android::os::dumpstate

namespace android::base {

std::string GetProperty(const std::string& key, const std::string& default_value) {
    const std::string value = Property(key);
    return value.empty() ? default_value : value;
}

bool GetBoolProperty(const std::string& key, bool default_value) {
    return GetProperty(key, default_value ? "true" : "false") == "true";
}

bool SetProperty(const std::string& key, const std::string& value) {
    Record(-1, {"set", key, value});
    const std::lock_guard lock(g_mutex);
    if (ThePlatform().on_property != nullptr) ThePlatform().on_property(key, true);
    ThePlatform().properties[key] = value;
    return false;  // every write fails, and nothing may come of that either
}

bool WaitForProperty(const std::string& key, const std::string& expected_value,
                     std::chrono::milliseconds relative_timeout) {
    Record(-1, {"wait", key, expected_value, std::to_string(relative_timeout.count())});
    return Property(key) == expected_value;
}

// As much as the tests' own values need.
template <typename T>
T GetIntProperty(const std::string& key, T default_value, T /*min*/, T /*max*/) {
    const std::string text = GetProperty(key, "");
    char* end = nullptr;
    const long long value = std::strtoll(text.c_str(), &end, 10);
    return text.empty() || *end != '\0' ? default_value : static_cast<T>(value);
}
template int32_t GetIntProperty(const std::string&, int32_t, int32_t, int32_t);

}  // namespace android::base

int __android_log_vprint(int priority, const char* tag, const char* format, va_list arguments) {
    std::array<char, 1024> message;
    std::vsnprintf(message.data(), message.size(), format, arguments);
    const std::string record =
            std::to_string(priority) + " " + (tag == nullptr ? "-" : tag) + " " + message.data();
    if (ThePlatform().on_log != nullptr) ThePlatform().on_log(record);
    if (std::this_thread::get_id() != g_test_thread) Record(-1, {"log", record});
    {
        const std::lock_guard lock(g_mutex);
        ThePlatform().logs.push_back(record);
    }
    g_logged.notify_all();
    return 1;
}

int __android_log_print(int priority, const char* tag, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = __android_log_vprint(priority, tag, format, arguments);
    va_end(arguments);
    return result;
}

// The C library's own, replaced at link level; a test may have one of its own in turn. A test's
// waits are shorter than a second.
unsigned sleep(unsigned seconds) {
    Record(-1, {"sleep", std::to_string(seconds)});
    return 0;
}
__attribute__((weak)) int nanosleep(const timespec* time, timespec* left) {
    if (time->tv_sec == 0) return clock_nanosleep(CLOCK_MONOTONIC, 0, time, left);
    Record(-1, {"sleep", std::to_string(time->tv_sec)});
    return 0;
}
