#include "output_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <system_error>
#include <utility>

#include "units.h"

namespace {

constexpr int kFlags = O_WRONLY | O_CLOEXEC | O_NOCTTY;
constexpr mode_t kOwnersAlone = S_IRUSR | S_IWUSR;
constexpr int kMostPartial = 1000;

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

}  // namespace

OutputFile::OutputFile(std::string name) : name_(std::move(name)), path_(OutputFile::name()) {
    struct stat there {};
    if (const int given = DescriptorOf(name_); given >= 0) {
        fd_ = fcntl(given, F_DUPFD_CLOEXEC, 0);
        if (fd_ < 0) error_ = errno;
    } else if (lstat(name_.c_str(), &there) == 0) {
        OpenExisting(there);
    } else if (errno == ENOENT && !name_.empty()) {
        OpenBeside();
    } else {
        error_ = errno;
    }
}

OutputFile::~OutputFile() {
    Close();
    if (beside_ && size_ == 0) unlink(path_.c_str());
}

void OutputFile::OpenExisting(const struct stat& named) {
    fd_ = open(name_.c_str(), kFlags);
    struct stat status {};
    if (fd_ < 0 || fstat(fd_, &status) != 0) {
        error_ = errno;
        if (error_ == ENOENT)
            Refuse("it is a symbolic link");  // as it was there, but leads nowhere
        return;
    }
    if (S_ISCHR(status.st_mode)) return;
    if (S_ISBLK(status.st_mode)) return Refuse("it is a disk");
    if (status.st_dev != named.st_dev || status.st_ino != named.st_ino) {
        return Refuse("it is a symbolic link");
    }
    if (status.st_uid != geteuid()) return Refuse("it belongs to another user");
    if (!S_ISREG(status.st_mode)) return;
    exists_ = true;
    mode_ = status.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO);
    group_ = status.st_gid;
    OpenBeside();
}

void OutputFile::OpenBeside() {
    int fd = -1;
    int count = 0;
    do {
        path_ = name_ + ".partial";
        if (++count > 1) path_.append(".").append(std::to_string(count));
        fd = open(path_.c_str(), kFlags | O_CREAT | O_EXCL, kOwnersAlone);
    } while (fd < 0 && errno == EEXIST && count < kMostPartial);
    kept_ = true;
    if (fd >= 0) {
        fchmod(fd, kOwnersAlone);  // whatever the umask has left
        Close();
        fd_ = fd;
        beside_ = true;
        return;
    }
    path_ = name_;
    const bool no_room_beside = errno == EACCES || errno == EPERM || errno == EROFS;
    if (fd_ < 0 || !no_room_beside) error_ = errno;
}

void OutputFile::Refuse(const char* why) {
    error_ = EPERM;
    refusal_ = why;
}

std::string OutputFile::Sentence() const {
    std::string sentence = "cannot write " + name() + ": ";
    sentence += refusal_ != nullptr ? refusal_ : std::generic_category().message(error_);
    if (!kept_ || size_ == 0) return sentence;
    return sentence + "; the first " + reader::HumanSize(size_) + " are kept in " + path_;
}

void OutputFile::Close() {
    if (fd_ >= 0 && close(fd_) != 0 && error_ == 0) error_ = errno;
    fd_ = -1;
}

bool OutputFile::Write(std::string_view bytes) {
    const bool overwrites = kept_ && !beside_ && size_ == 0 && !bytes.empty();
    if (error_ == 0 && overwrites && ftruncate(fd_, 0) != 0) error_ = errno;
    while (error_ == 0 && !bytes.empty()) {
        const ssize_t written = write(fd_, bytes.data(), bytes.size());
        if (written >= 0) {
            size_ += static_cast<uint64_t>(written);
            bytes.remove_prefix(static_cast<size_t>(written));
        } else if (errno != EINTR) {
            error_ = errno;
        }
    }
    return error_ == 0;
}

bool OutputFile::Commit() {
    if (error_ != 0) return false;
    if (!beside_ || size_ == 0) return true;
    if (exists_) {
        // Rights of a group that this file can't be given would be another group's.
        if (fchown(fd_, static_cast<uid_t>(-1), group_) != 0) mode_ &= ~mode_t{S_IRWXG};
        if (fchmod(fd_, mode_) != 0) error_ = errno;
    }
    Close();  // which on a network's disk may tell of a write that failed
    if (error_ == 0 && rename(path_.c_str(), name_.c_str()) != 0) error_ = errno;
    if (error_ != 0) return false;
    path_ = name_;
    beside_ = false;
    return true;
}
