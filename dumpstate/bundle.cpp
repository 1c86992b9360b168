#include <android-base/unique_fd.h>
#include <android/log.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <new>

#include "dumpstate.h"
#include "section.h"
#include "staging.h"
#include "write_alarm.h"

namespace aidl::android::hardware::dumpstate {
namespace {

using namespace std::chrono_literals;

constexpr size_t kChunk = 65536;

// A reader that takes less than a chunk in this time has stopped. The one thread that serves calls
// must not stop with it.
constexpr std::chrono::seconds kBundlePatience{30};

constexpr Entry kPack[] = {
        Command("TAR LOG", {"/vendor/bin/tar", "cvf", kBundleArchive, "-C", kStagingDirectory, "."},
                20s),
        Command("CHG PERM", {"/vendor/bin/chmod", "a+w", kBundleArchive}, 2s),
};

constexpr Entry kRemove[] = {
        Command("RM DUMPSTATE BIN DIR", {"/vendor/bin/rm", "-r", kTemporaryFolder}, 2s),
};

::android::base::unique_fd openArchive() {
    int archive;
    do {
        archive = open(kBundleArchive, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    } while (archive < 0 && errno == EINTR);
    return ::android::base::unique_fd(archive);
}

ssize_t readChunk(int archive, char* chunk) {
    ssize_t size;
    do {
        size = read(archive, chunk, kChunk);
    } while (size < 0 && errno == EINTR);
    return size;
}

ssize_t writeChunk(int bundle_fd, const char* chunk, ssize_t size, WriteAlarm& alarm) {
    alarm.Set(kBundlePatience);
    ssize_t written;
    do {
        written = write(bundle_fd, chunk, static_cast<size_t>(size));
    } while (written < 0 && errno == EINTR && !alarm.rang());
    return written;
}

// A short write is not made up for: a reader that takes less than it is given has its own limit,
// and what it has is told to be short by its missing end.
void copyArchive(int archive, int bundle_fd, char* chunk) {
    WriteAlarm alarm;
    for (;;) {
        const ssize_t size = readChunk(archive, chunk);
        if (size < 0)
            __android_log_print(ANDROID_LOG_DEBUG, nullptr, "read(%s): %s\n", kBundleArchive,
                                std::strerror(errno));
        if (size <= 0) return;
        const ssize_t written = writeChunk(bundle_fd, chunk, size, alarm);
        if (written != size) {
            __android_log_print(ANDROID_LOG_DEBUG, nullptr,
                                "Failed to write %zd bytes, actually written: %zd\n", size,
                                written);
            if (alarm.rang() && (written > 0 || errno == EINTR)) {
                __android_log_print(ANDROID_LOG_WARN, nullptr,
                                    "The bundle is cut here: its reader has stopped for %d s",
                                    static_cast<int>(kBundlePatience.count()));
            }
            return;
        }
    }
}

void streamArchive(int bundle_fd) {
    const std::unique_ptr<char[]> chunk(new (std::nothrow) char[kChunk]());
    const ::android::base::unique_fd archive = openArchive();
    const int error = errno;
    __android_log_print(ANDROID_LOG_DEBUG, nullptr, "Goind to write dumpstate board binary\n");
    if (archive.get() < 0) {
        __android_log_print(ANDROID_LOG_ERROR, nullptr, "Failed to open '%s': %s", kBundleArchive,
                            std::strerror(error));
    } else if (chunk == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, nullptr, "no memory to write the bundle with");
    } else {
        copyArchive(archive.get(), bundle_fd, chunk.get());
    }
}

}  // namespace

void Dumpstate::createDumpstateBin(int fd, int bundle_fd) {
    __android_log_print(ANDROID_LOG_DEBUG, nullptr, "Going to compress logs\n");
    dumpEntries(fd, kPack);
    streamArchive(bundle_fd);
    __android_log_print(ANDROID_LOG_DEBUG, nullptr, "Goind to remove dumpstate temp folder\n");
    dumpEntries(fd, kRemove);
}

}  // namespace aidl::android::hardware::dumpstate
