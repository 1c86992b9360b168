#include "staging.h"

#include <android/log.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace aidl::android::hardware::dumpstate {

void setLeftoversAside() {
    chmod(kTemporaryFolder, S_IRWXU);
    if (access(kBundleArchive, F_OK) == 0) {
        __android_log_print(ANDROID_LOG_WARN, nullptr,
                            "An earlier report's '%s' is still there: should packing fail, the "
                            "bundle is that one",
                            kBundleArchive);
    }
    // An empty one goes, and what can't go is moved.
    if (rmdir(kStagingDirectory) != 0 && errno != ENOENT) {
        char aside[] = "/data/vendor/log/dumpstate/left.XXXXXX";
        if (mkdtemp(aside) == nullptr || rename(kStagingDirectory, aside) != 0) {
            __android_log_print(ANDROID_LOG_WARN, nullptr,
                                "The bundle holds what is left of an earlier report's: '%s' can't "
                                "be moved aside: %s",
                                kStagingDirectory, std::strerror(errno));
            return;
        }
        __android_log_print(ANDROID_LOG_WARN, nullptr,
                            "What is left of an earlier report's bundle is moved aside to '%s'",
                            aside);
    }
    mkdir(kStagingDirectory, S_IRWXU);  // or every copy tells that it isn't there
}

}  // namespace aidl::android::hardware::dumpstate
