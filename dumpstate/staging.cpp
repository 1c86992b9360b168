#include "staging.h"

#include <android/log.h>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace aidl::android::hardware::dumpstate {
namespace {

// The name of something in the directory, which is looked at no further; "" where there is nothing.
template <size_t size>
void findOne(const char* directory, char (&name)[size]) {
    struct Close {
        void operator()(DIR* open) const { closedir(open); }
    };
    name[0] = '\0';
    const std::unique_ptr<DIR, Close> open(opendir(directory));
    if (open == nullptr) return;
    while (const dirent* const entry = readdir(open.get())) {
        const bool is_dots =
                std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0;
        if (is_dots) continue;
        std::snprintf(name, size, "%s", entry->d_name);
        return;
    }
}

}  // namespace

void setLeftoversAside() {
    chmod(kTemporaryFolder, S_IRWXU);
    if (access(kBundleArchive, F_OK) == 0) {
        __android_log_print(ANDROID_LOG_WARN, nullptr,
                            "An earlier report's '%s' is still there: should packing fail, the "
                            "bundle is that one",
                            kBundleArchive);
    }
    char name[sizeof dirent{}.d_name];
    findOne(kStagingDirectory, name);
    if (name[0] == '\0') return;
    char aside[] = "/data/vendor/log/dumpstate/left.XXXXXX";
    if (mkdtemp(aside) == nullptr || rename(kStagingDirectory, aside) != 0) {
        __android_log_print(ANDROID_LOG_WARN, nullptr,
                            "The bundle holds what is left of an earlier report's, '%s' among it: "
                            "'%s' can't be moved aside: %s",
                            name, kStagingDirectory, std::strerror(errno));
        return;
    }
    mkdir(kStagingDirectory, S_IRWXU);  // or every copy tells that it isn't there
    __android_log_print(ANDROID_LOG_WARN, nullptr,
                        "What is left of an earlier report's bundle, '%s' among it, is moved aside "
                        "to '%s'",
                        name, aside);
}

}  // namespace aidl::android::hardware::dumpstate
