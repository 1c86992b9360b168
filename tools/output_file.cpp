#include "output_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

#include "temporary_file.h"
#include "units.h"

namespace {

constexpr int kFlags = O_WRONLY | O_CLOEXEC | O_NOCTTY;
constexpr int kLook = O_PATH | O_NOFOLLOW | O_CLOEXEC;
constexpr mode_t kOwnersAlone = S_IRUSR | S_IWUSR;
constexpr mode_t kRights = S_IRWXU | S_IRWXG | S_IRWXO;
constexpr int kNumbered = 9;

// The open descriptor that a name stands for, or -1. It is used as it is: opened anew, a file would
// be written from its beginning, and a pipe of another user not at all.
int DescriptorOf(std::string_view name) {
    if (name == "-" || name == "/dev/stdout") return STDOUT_FILENO;
    if (name == "/dev/stderr") return STDERR_FILENO;
    for (const std::string_view folder : {"/dev/fd/", "/proc/self/fd/"}) {
        if (!name.starts_with(folder)) continue;
        name.remove_prefix(folder.size());
        int number = -1;
        const auto [end, error] = std::from_chars(name.begin(), name.end(), number);
        return error == std::errc{} && end == name.end() ? number : -1;
    }
    return -1;
}

bool IsDevice(const struct stat& status, unsigned major, unsigned minor) {
    return S_ISCHR(status.st_mode) && status.st_rdev == makedev(major, minor);
}

bool IsNull(const struct stat& status) {
    return IsDevice(status, 1, 3);
}

// Its caller's own terminal, whoever owns the name that stands for it.
bool IsTerminalOfCaller(const struct stat& status) {
    return IsDevice(status, 5, 0);
}

// Opens for writing what has been looked at, and nothing that took its place since.
int OpenAsItIs(int looked_at) {
    return open(("/proc/self/fd/" + std::to_string(looked_at)).c_str(), kFlags);
}

bool IsSame(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

}  // namespace

OutputFile::OutputFile(std::string name) : name_(std::move(name)), path_(OutputFile::name()) {
    if (const int given = DescriptorOf(name_); given >= 0) {
        fd_ = fcntl(given, F_DUPFD_CLOEXEC, 0);
        if (fd_ < 0 || fstat(fd_, &named_) != 0) error_ = errno;
        return;
    }
    // Looked at first: to open a device has effects, and another user's FIFO may never open.
    const int there = open(name_.c_str(), kLook);
    if (there >= 0) {
        OpenExisting(there);
        close(there);
    } else if (errno == ENOENT) {
        OpenBeside();
    } else {
        error_ = errno;
    }
}

OutputFile::~OutputFile() {
    Close();
    if (beside_ && !leftover_ && size_ == 0) unlink(path_.c_str());
}

void OutputFile::OpenExisting(int there) {
    if (fstat(there, &named_) != 0) {
        error_ = errno;
        return;
    }
    const bool for_everybody = IsNull(named_) || IsTerminalOfCaller(named_);
    if (S_ISLNK(named_.st_mode)) return Refuse("it is a symbolic link");
    if (S_ISBLK(named_.st_mode)) return Refuse("it is a disk");
    if (S_ISSOCK(named_.st_mode)) return Refuse("it is a socket");
    if (!S_ISDIR(named_.st_mode) && named_.st_uid != geteuid() && !for_everybody) {
        return Refuse("it belongs to another user");
    }
    fd_ = OpenAsItIs(there);
    if (fd_ < 0) {
        error_ = errno;
        return;
    }
    if (!S_ISREG(named_.st_mode)) return;
    exists_ = true;
    OpenBeside();
}

void OutputFile::OpenBeside() {
    const int target = std::exchange(fd_, -1);
    const std::string folder = std::filesystem::path(name_).parent_path();
    if (faccessat(AT_FDCWD, folder.empty() ? "." : folder.c_str(), W_OK, AT_EACCESS) != 0) {
        error_ = errno;
    }
    bool taken = false;
    for (int number = 1; !taken && error_ == 0 && number <= kNumbered; ++number) {
        path_ = name_ + ".partial" + (number > 1 ? "." + std::to_string(number) : "");
        taken = TakePartial();
    }
    if (!taken && error_ == 0) {
        path_ = name_ + ".partial.XXXXXX";
        fd_ = mkostemp(path_.data(), O_CLOEXEC);
        if (fd_ < 0) error_ = errno;
    }
    kept_ = true;
    beside_ = fd_ >= 0;
    if (beside_) {
        fchmod(fd_, kOwnersAlone);  // whatever the umask has left
        if (target >= 0) close(target);
        return;
    }
    path_ = name_;
    fd_ = target;
    const bool no_room_beside = error_ == EACCES || error_ == EPERM || error_ == EROFS;
    if (target >= 0 && no_room_beside) error_ = 0;
}

// Opens path_ if nobody has it, or if it is what an earlier one left there. The lock keeps others
// off for as long as it is being filled. False, without an error, where it is anything else.
bool OutputFile::TakePartial() {
    fd_ = open(path_.c_str(), kFlags | O_CREAT | O_EXCL, kOwnersAlone);
    if (fd_ < 0 && errno != EEXIST) {
        error_ = errno;
        return false;
    }
    struct stat taken {};
    if (fd_ < 0) {
        const int there = open(path_.c_str(), kLook);
        const bool ours = there >= 0 && fstat(there, &taken) == 0 && S_ISREG(taken.st_mode) &&
                          taken.st_uid == geteuid() && taken.st_nlink == 1;
        if (ours) fd_ = OpenAsItIs(there);
        if (there >= 0) close(there);
    } else if (fstat(fd_, &taken) != 0) {
        Close();
    }
    // Once locked, it has to be there still: who held it may have put it in its place.
    struct stat there {};
    const bool ours = fd_ >= 0 && (flock(fd_, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) &&
                      lstat(path_.c_str(), &there) == 0 && IsSame(taken, there);
    if (!ours) Close();
    leftover_ = ours && taken.st_size > 0;
    return ours;
}

void OutputFile::Refuse(const char* why) {
    error_ = EPERM;
    refusal_ = why;
}

std::string OutputFile::Sentence() const {
    std::string sentence = "cannot write " + name() + ": ";
    sentence += refusal_ != nullptr ? refusal_ : reader::Reason(error_);
    if (!kept_ || size_ == 0) return sentence;
    return sentence + "; the first " + reader::HumanSize(size_) + " are kept in " + path_;
}

void OutputFile::Close() {
    if (fd_ >= 0 && close(fd_) != 0 && error_ == 0) error_ = errno;
    fd_ = -1;
}

// Waits until a write of PIPE_BUF bytes is taken at once. False when it was told to give up.
bool OutputFile::MayWrite() const {
    std::array<pollfd, 2> waits{pollfd{fd_, POLLOUT, 0}, pollfd{give_up_, POLLIN, 0}};
    while (waits[0].revents == 0 && waits[1].revents == 0) {
        if (poll(waits.data(), waits.size(), -1) < 0 && errno != EINTR) return true;
    }
    return waits[1].revents == 0;
}

bool OutputFile::Write(std::string_view bytes) {
    const bool begins = kept_ && size_ == 0 && !bytes.empty();
    if (error_ == 0 && begins && (leftover_ || !beside_) && ftruncate(fd_, 0) != 0) error_ = errno;
    const bool may_block = !kept_ && !S_ISREG(named_.st_mode) && give_up_ >= 0;
    while (error_ == 0 && !bytes.empty()) {
        if (may_block && !MayWrite()) {
            error_ = EINTR;
            break;
        }
        const size_t most = may_block ? size_t{PIPE_BUF} : bytes.size();
        const ssize_t written = write(fd_, bytes.data(), std::min(bytes.size(), most));
        if (written >= 0) {
            size_ += static_cast<uint64_t>(written);
            bytes.remove_prefix(static_cast<size_t>(written));
        } else if (errno != EINTR && !(errno == EAGAIN && may_block)) {
            error_ = errno;
        }
    }
    return error_ == 0;
}

bool OutputFile::Commit() {
    if (error_ != 0) return false;
    if (!beside_ || size_ == 0) return true;
    if (exists_) {
        mode_t mode = named_.st_mode & kRights;
        // Rights of a group that this file can't be given would be another group's.
        if (fchown(fd_, static_cast<uid_t>(-1), named_.st_gid) != 0) mode &= ~mode_t{S_IRWXG};
        if (fchmod(fd_, mode) != 0) error_ = errno;
    }
    // Nobody takes it for a leftover before it has its name.
    const int lock = fcntl(fd_, F_DUPFD_CLOEXEC, 0);
    Close();  // which on a network's disk may tell of a write that failed
    if (error_ == 0 && rename(path_.c_str(), name_.c_str()) != 0) error_ = errno;
    if (lock >= 0) close(lock);
    if (error_ != 0) return false;
    path_ = name_;
    beside_ = false;
    return true;
}

bool OutputFile::Replaces(int input) const {
    struct stat status {};
    if (fstat(input, &status) != 0 || !S_ISREG(status.st_mode)) return false;
    struct stat left {};
    return IsSame(status, named_) || (leftover_ && fstat(fd_, &left) == 0 && IsSame(status, left));
}

bool OutputFile::IsSameAs(const OutputFile& other) const {
    if (is_standard_output() && other.is_standard_output()) return true;
    if (named_.st_ino != 0 || other.named_.st_ino != 0) {
        return IsSame(named_, other.named_) && !IsNull(named_);
    }
    // Neither is there yet.
    namespace fs = std::filesystem;
    std::error_code neither;
    const auto whole = [&neither](const std::string& name) {
        return fs::weakly_canonical(fs::absolute(name, neither), neither);
    };
    return whole(name_) == whole(other.name_);
}

std::string OutputFile::name() const {
    return is_standard_output() ? "standard output" : name_;
}
