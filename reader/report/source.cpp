#include "source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace reader {
namespace {

// Fits into a core's own cache, so that what was read is still there when it is looked at.
constexpr size_t kBuffer = size_t{64} * 1024;

std::string Reason(int error) {
    return std::generic_category().message(error);
}

int OpenTemporary() {
    const char* const named = std::getenv("TMPDIR");
    const std::string folder = named == nullptr || *named == '\0' ? "/tmp" : named;
    const int fd = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (fd >= 0 || (errno != EOPNOTSUPP && errno != EISDIR)) return fd;
    std::string path = folder + "/boardreport.XXXXXX";
    const int named_fd = mkostemp(path.data(), O_CLOEXEC);
    if (named_fd >= 0) unlink(path.c_str());
    return named_fd;
}

bool WriteAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return false;
        bytes.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

}  // namespace

Source::~Source() {
    if (spool_fd_ >= 0) close(spool_fd_);
    if (fd_ >= 0) close(fd_);
}

std::string Source::Open(const std::string& path, bool again) {
    name_ = path == "-" ? "standard input" : path;
    fd_ = path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                      : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    struct stat status {};
    if (fd_ < 0 || fstat(fd_, &status) != 0) return "cannot read " + name_ + ": " + Reason(errno);
    if (S_ISDIR(status.st_mode)) return name_ + " is a folder; name the report in it";
    const off_t begin = lseek(fd_, 0, SEEK_CUR);
    if (S_ISREG(status.st_mode) && begin >= 0) {
        begin_ = static_cast<uint64_t>(begin);
        posix_fadvise(fd_, 0, 0, POSIX_FADV_SEQUENTIAL);
    } else if (again) {
        spool_fd_ = OpenTemporary();
        if (spool_fd_ < 0) {
            return "cannot keep " + name_ + " in a temporary file: " + Reason(errno) +
                   "; TMPDIR names another folder for it";
        }
    }
    buffer_.resize(kBuffer);
    return "";
}

std::string_view Source::Read() {
    ssize_t size;
    do {
        size = read(fd_, buffer_.data(), buffer_.size());
    } while (size < 0 && errno == EINTR);
    if (size < 0) error_ = "cannot read " + name_ + ": " + Reason(errno);
    const std::string_view bytes(buffer_.data(), size > 0 ? static_cast<size_t>(size) : 0);
    if (spool_fd_ >= 0 && !WriteAll(spool_fd_, bytes)) {
        error_ = "cannot keep " + name_ + " in a temporary file: " + Reason(errno);
        return {};
    }
    if (bytes.empty()) buffer_ = {};
    return bytes;
}

bool Source::ReadAt(TextRange range, std::string& bytes) const {
    const int fd = spool_fd_ >= 0 ? spool_fd_ : fd_;
    const uint64_t begin = range.begin + (spool_fd_ >= 0 ? 0 : begin_);
    const size_t before = bytes.size();
    bytes.resize(before + static_cast<size_t>(range.size()));
    size_t done = 0;
    while (done < range.size()) {
        const ssize_t size = pread(fd, &bytes[before + done], bytes.size() - before - done,
                                   static_cast<off_t>(begin + done));
        if (size < 0 && errno == EINTR) continue;
        if (size <= 0) break;
        done += static_cast<size_t>(size);
    }
    bytes.resize(before + done);
    return done == range.size();
}

}  // namespace reader
