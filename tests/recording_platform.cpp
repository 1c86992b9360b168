#include "recording_platform.h"

#include <DumpstateUtil.h>
#include <android-base/properties.h>
#include <android/log.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>

namespace {

std::mutex g_mutex;
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
    const auto found = ThePlatform().properties.find(key);
    return found == ThePlatform().properties.end() ? "" : found->second;
}

}  // namespace

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

bool internal::ParseInteger(const std::string& text, bool* negative,
                            unsigned long long* magnitude) {
    *negative = text.starts_with('-');
    *magnitude = std::strtoull(text.c_str() + (*negative ? 1 : 0), nullptr, 10);
    return !text.empty();
}

bool SetProperty(const std::string& key, const std::string& value) {
    Record(-1, {"set", key, value});
    const std::lock_guard lock(g_mutex);
    ThePlatform().properties[key] = value;
    return false;  // every write fails, and nothing may come of that either
}

bool WaitForProperty(const std::string& key, const std::string& expected_value,
                     std::chrono::milliseconds relative_timeout) {
    Record(-1, {"wait", key, expected_value, std::to_string(relative_timeout.count())});
    return Property(key) == expected_value;
}

}  // namespace android::base

int __android_log_print(int priority, const char* tag, const char* format, ...) {
    std::array<char, 1024> message;
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(message.data(), message.size(), format, arguments);
    va_end(arguments);
    const std::string record =
            std::to_string(priority) + " " + (tag == nullptr ? "-" : tag) + " " + message.data();
    if (ThePlatform().on_log != nullptr) ThePlatform().on_log(record);
    if (std::this_thread::get_id() != g_test_thread) {
        Record(-1, {"log", record});
        return 1;
    }
    const std::lock_guard lock(g_mutex);
    ThePlatform().logs.push_back(record);
    return 1;
}

// The C library's own, replaced at link level.
unsigned sleep(unsigned seconds) {
    Record(-1, {"sleep", std::to_string(seconds)});
    return 0;
}
