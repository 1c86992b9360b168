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
#include <mutex>

RecordingPlatform& ThePlatform() {
    static RecordingPlatform platform;
    return platform;
}

namespace {

std::mutex logs_mutex;
std::condition_variable logged;

void Record(int fd, const std::vector<std::string>& parts) {
    std::string line;
    for (const std::string& part : parts) {
        if (!line.empty()) line += '\t';
        for (const char c : part) line += c == '\n' ? std::string("\\n") : std::string(1, c);
    }
    ThePlatform().requests.push_back(line);
    if (fd >= 0) ThePlatform().descriptors.push_back(fd);
}

}  // namespace

std::vector<std::string> LogsOf(const std::string& tag) {
    const std::lock_guard lock(logs_mutex);
    std::vector<std::string> logs;
    std::ranges::copy_if(
            ThePlatform().logs, std::back_inserter(logs),
            [&](const std::string& record) { return record.substr(2).starts_with(tag + " "); });
    return logs;
}

bool WaitForLog(const std::string& record) {
    std::unique_lock lock(logs_mutex);
    return logged.wait_for(lock, std::chrono::seconds(10),
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
    if (ThePlatform().echo_titles) dprintf(fd, "[%s]\n", title.c_str());
    return -1;  // every command fails, and nothing may come of it
}

int DumpFileToFd(int fd, const std::string& title, const std::string& path) {
    Record(fd, {"file", title, "-", path});
    return -1;
}

bool PropertiesHelper::IsUserBuild() {
    Record(-1, {"build type?"});
    return ThePlatform().properties["ro.build.type"] == "user";
}

}  // namespace android::os::dumpstate

namespace android::base {

std::string GetProperty(const std::string& key, const std::string& default_value) {
    const auto found = ThePlatform().properties.find(key);
    return found == ThePlatform().properties.end() ? default_value : found->second;
}

bool GetBoolProperty(const std::string& key, bool default_value) {
    return GetProperty(key, default_value ? "true" : "false") == "true";
}

bool SetProperty(const std::string& key, const std::string& value) {
    ThePlatform().properties[key] = value;
    return false;  // every write fails, and nothing may come of that either
}

// As much as the tests' own values need.
bool internal::ParseInteger(const std::string& text, bool* negative,
                            unsigned long long* magnitude) {
    char* end = nullptr;
    const long long value = std::strtoll(text.c_str(), &end, 10);
    *negative = value < 0;
    *magnitude = static_cast<unsigned long long>(std::llabs(value));
    return !text.empty() && *end == '\0';
}

}  // namespace android::base

int __android_log_vprint(int priority, const char* tag, const char* format, va_list arguments) {
    std::array<char, 1024> message;
    std::vsnprintf(message.data(), message.size(), format, arguments);
    {
        const std::lock_guard lock(logs_mutex);
        ThePlatform().logs.push_back(std::to_string(priority) + " " + (tag == nullptr ? "-" : tag) +
                                     " " + message.data());
    }
    logged.notify_all();
    return 1;
}

int __android_log_print(int priority, const char* tag, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = __android_log_vprint(priority, tag, format, arguments);
    va_end(arguments);
    return result;
}
