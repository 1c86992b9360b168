#include "recording_platform.h"

#include <DumpstateUtil.h>
#include <android-base/properties.h>
#include <android/log.h>

#include <array>
#include <cstdarg>
#include <cstdio>

RecordingPlatform& ThePlatform() {
    static RecordingPlatform platform;
    return platform;
}

namespace {

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

namespace android::os::dumpstate {

const CommandOptions CommandOptions::DEFAULT = CommandOptions::WithTimeout(-12345).Build();

int RunCommandToFd(int fd, const std::string& title, const std::vector<std::string>& full_command,
                   const CommandOptions& options) {
    const bool is_default = options.Timeout() == CommandOptions::DEFAULT.Timeout();
    std::vector<std::string> parts{"command", title,
                                   is_default ? "default" : std::to_string(options.Timeout())};
    parts.insert(parts.end(), full_command.begin(), full_command.end());
    Record(fd, parts);
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

}  // namespace android::base

int __android_log_print(int priority, const char* tag, const char* format, ...) {
    std::array<char, 1024> message;
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(message.data(), message.size(), format, arguments);
    va_end(arguments);
    ThePlatform().logs.push_back(std::to_string(priority) + " " + (tag == nullptr ? "-" : tag) +
                                 " " + message.data());
    return 1;
}
