#include "log_copy.h"

#include <DumpstateUtil.h>
#include <android/log.h>
#include <dirent.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "section.h"

namespace aidl::android::hardware::dumpstate {
namespace {

using ::android::os::dumpstate::CommandOptions;
using ::android::os::dumpstate::RunCommandToFd;

constexpr int64_t kCopyTimeoutSeconds = 5;
constexpr int kNoLimit = -1;

// A directory's names in ascending order.
class Listing {
  public:
    explicit Listing(const char* directory)
        : count_(scandir(directory, &entries_, nullptr, alphasort)) {}
    ~Listing() {
        for (int i = count_ - 1; i >= 0; --i) free(entries_[i]);
        free(entries_);
    }
    Listing(const Listing&) = delete;
    Listing& operator=(const Listing&) = delete;

    int count() const { return count_; }  // -1 when the directory could not be listed
    const char* name(int i) const { return entries_[i]->d_name; }

  private:
    dirent** entries_ = nullptr;
    const int count_;
};

// The text as one word of a shell's command line, left alone where the shell would leave it alone.
std::string shellWord(const std::string& text) {
    const auto is_plain = [](char c) {
        constexpr std::string_view kPunctuation = "/._-+,:@%";
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               kPunctuation.find(c) != std::string_view::npos;
    };
    if (std::ranges::all_of(text, is_plain)) return text;
    std::string word = "'";
    for (const char c : text) {
        if (c == '\'') {
            word += R"('\'')";
        } else {
            word += c;
        }
    }
    return word += '\'';
}

void copyLog(int fd, const std::string& source, const std::string& destination) {
    const std::string line = "/vendor/bin/cp " + shellWord(source) + " " + shellWord(destination);
    __android_log_print(ANDROID_LOG_DEBUG, nullptr, "Copying %s to %s\n", source.c_str(),
                        destination.c_str());
    RunCommandToFd(fd, "CP LOG", {"/vendor/bin/sh", "-c", line},
                   CommandOptions::WithTimeout(kCopyTimeoutSeconds).Build());
}

}  // namespace

void dumpLogs(int fd, std::string srcDir, std::string destDir, int maxFiles, const char* prefix) {
    const Listing listing(srcDir.c_str());
    srcDir += '/';
    destDir += '/';
    const size_t prefix_length = std::strlen(prefix);
    int copied = 0;
    for (int i = listing.count() - 1; i >= 0; --i) {
        const char* const name = listing.name(i);
        protect(name, [&] {
            __android_log_print(ANDROID_LOG_DEBUG, nullptr, "Found %s\n", name);
            if (std::strncmp(name, prefix, prefix_length) != 0) return;
            if (maxFiles != kNoLimit && copied >= maxFiles) {
                __android_log_print(ANDROID_LOG_DEBUG, nullptr, "Skipped %s\n", name);
                return;
            }
            ++copied;  // whatever becomes of it: the limit is one of time as well
            copyLog(fd, srcDir + name, destDir + name);
        });
    }
}

void dumpRilLogs(int fd, std::string destDir) {
    constexpr const char* kSources[] = {
            "/data/vendor/radio/ril_log0",    "/data/vendor/radio/ril_log0_old",
            "/data/vendor/radio/qmi_fw_log",  "/data/vendor/radio/qmi_fw_log_old",
            "/data/vendor/netmgr/netmgr_log", "/data/vendor/netmgr/netmgr_log_old",
    };
    std::vector<std::string> command{"/vendor/bin/cp", "-r", "", std::move(destDir)};
    for (const char* source : kSources) {
        protect(source, [&] {
            command[2] = source;
            RunCommandToFd(fd, "RIL Logs", command,
                           CommandOptions::WithTimeout(kCopyTimeoutSeconds).Build());
        });
    }
}

}  // namespace aidl::android::hardware::dumpstate
