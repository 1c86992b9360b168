#include <DumpstateUtil.h>
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <string_view>

#include "copy.h"
#include "file_feeder.h"
#include "section_frame.h"

namespace android::os::dumpstate {
namespace {

constexpr std::chrono::seconds kTimeout{10};

// Most of the report's files are no longer than this. Such a one is read into memory and written
// together with the lines around it, which saves more than moving it inside the kernel does.
constexpr size_t kSmall = 4096;

struct Outcome {
    bool end_line;
    bool complete;
    std::string failure;
};

// File systems that keep their files on a disk or in memory, with no driver or daemon behind a file
// that could hold its reader.
bool AnswersAtOnce(const std::string& path) {
    // The magic numbers that the kernel's header has no name for: xfs, and vfat's.
    constexpr uint32_t kPlain[] = {EXT4_SUPER_MAGIC,  F2FS_SUPER_MAGIC,      EROFS_SUPER_MAGIC_V1,
                                   TMPFS_MAGIC,       OVERLAYFS_SUPER_MAGIC, SQUASHFS_MAGIC,
                                   BTRFS_SUPER_MAGIC, RAMFS_MAGIC,           MSDOS_SUPER_MAGIC,
                                   0x58465342};
    struct statfs system {};
    if (statfs(path.c_str(), &system) != 0) return false;
    const auto type = static_cast<uint32_t>(system.f_type);
    return std::ranges::find(kPlain, type) != std::end(kPlain);
}

Outcome OutcomeOf(const CopyResult& copy, const std::string& path) {
    std::string failure;
    if (copy.timed_out) {
        failure = "timed out after " + std::to_string(kTimeout.count()) + " s, stopped";
    } else if (copy.read_error != 0) {
        failure = "cannot read " + path + ": " + Reason(copy.read_error);
    }
    return {!copy.ends_line, failure.empty() && copy.write_error == 0, failure};
}

Outcome CannotOpen(const std::string& path, int error) {
    return {false, false, "cannot open " + path + ": " + Reason(error)};
}

std::chrono::seconds Begin(SectionFrame& frame) {
    return frame.Begin() ? kTimeout : std::chrono::seconds(0);
}

Outcome CopyDirectly(SectionFrame& frame, int fd, const std::string& path) {
    const base::unique_fd in(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    if (in.get() < 0) return CannotOpen(path, errno);
    std::array<char, kSmall + 1> buffer;
    const ssize_t got = read(in.get(), buffer.data(), buffer.size());
    if (got < 0) return OutcomeOf({.read_error = errno}, path);
    if (static_cast<size_t>(got) < buffer.size()) {
        const std::string_view content(buffer.data(), static_cast<size_t>(got));
        frame.Hold(content);
        return OutcomeOf({.ends_line = content.empty() || content.ends_with('\n')}, path);
    }
    // The size now bounds the copy: a log that grows as fast as it is read has no end.
    struct stat status {};
    if (lseek(in.get(), 0, SEEK_SET) != 0 || fstat(in.get(), &status) != 0) {
        return OutcomeOf({.read_error = errno}, path);
    }
    return OutcomeOf(
            CopyRegularFile(in.get(), fd, static_cast<uint64_t>(status.st_size), Begin(frame)),
            path);
}

Outcome CopyThroughFeeder(SectionFrame& frame, int fd, const std::string& path) {
    const platform::Deadline deadline = std::chrono::steady_clock::now() + Begin(frame);
    FileFeeder feeder;
    if (const int error = feeder.Start(path); error != 0) return CannotOpen(path, error);
    CopyResult copy = CopyPipe(feeder.pipe(), fd, deadline);
    const bool ended = !copy.timed_out && copy.write_error == 0;
    if (ended && feeder.open_error() != 0) return CannotOpen(path, feeder.open_error());
    if (ended) copy.read_error = feeder.read_error();
    return OutcomeOf(copy, path);
}

Outcome Copy(SectionFrame& frame, int fd, const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return CannotOpen(path, errno);
    const bool plain = S_ISREG(status.st_mode) || S_ISDIR(status.st_mode);
    if (plain && AnswersAtOnce(path)) return CopyDirectly(frame, fd, path);
    return CopyThroughFeeder(frame, fd, path);
}

}  // namespace

int DumpFileToFd(int fd, const std::string& title, const std::string& path) {
    SectionFrame frame(fd, title, path);
    const Outcome outcome = Copy(frame, fd, path);
    const int error = frame.Close(outcome.end_line, outcome.failure);
    return outcome.complete && error == 0 ? 0 : -1;
}

}  // namespace android::os::dumpstate
