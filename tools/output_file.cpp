#include "output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

OutputFile::OutputFile(std::string path) : path_(std::move(path)) {
    if (path_ == "-") {
        fd_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
        if (fd_ < 0) error_ = errno;
        return;
    }
    constexpr int kFlags = O_WRONLY | O_CLOEXEC | O_NOCTTY;
    fd_ = open(path_.c_str(), kFlags | O_CREAT | O_EXCL, 0644);
    created_ = fd_ >= 0;
    if (fd_ < 0 && errno == EEXIST) fd_ = open(path_.c_str(), kFlags);
    if (fd_ < 0) error_ = errno;
}

OutputFile::~OutputFile() {
    if (fd_ >= 0) close(fd_);
    if (created_ && size_ == 0) unlink(path_.c_str());
}

bool OutputFile::Write(std::string_view bytes) {
    // Standard output may hold what others wrote before.
    if (error_ == 0 && size_ == 0 && !bytes.empty() && !is_standard_output()) {
        struct stat status {};
        if (fstat(fd_, &status) == 0 && S_ISREG(status.st_mode) && ftruncate(fd_, 0) != 0) {
            error_ = errno;
        }
    }
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
