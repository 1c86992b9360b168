#include "section.h"

#include <DumpstateUtil.h>

#include <string>
#include <vector>

namespace aidl::android::hardware::dumpstate {
namespace {

using ::android::os::dumpstate::CommandOptions;
using ::android::os::dumpstate::DumpFileToFd;
using ::android::os::dumpstate::PropertiesHelper;
using ::android::os::dumpstate::RunCommandToFd;

CommandOptions OptionsOf(const Entry& entry) {
    if (!entry.timeout) return CommandOptions::DEFAULT;
    return CommandOptions::WithTimeout(entry.timeout->count()).Build();
}

void dumpEntry(int fd, const Entry& entry) {
    if (entry.file != nullptr) {
        DumpFileToFd(fd, entry.title, entry.file);
        return;
    }
    const auto end = std::ranges::find(entry.command, nullptr);
    const std::vector<std::string> command(entry.command.begin(), end);
    RunCommandToFd(fd, entry.title, command, OptionsOf(entry));
}

}  // namespace

void dumpEntries(int fd, std::span<const Entry> entries) {
    bool left_out = false;
    for (const Entry& entry : entries) {
        if (entry.builds == Builds::kEvery) left_out = false;
        if (entry.builds == Builds::kDevelopment) left_out = isUserBuild();
        if (!left_out) protect(entry.title, [&] { dumpEntry(fd, entry); });
    }
}

bool isUserBuild() {
    bool user_build = true;
    protect("build type", [&] { user_build = PropertiesHelper::IsUserBuild(); });
    return user_build;
}

}  // namespace aidl::android::hardware::dumpstate
