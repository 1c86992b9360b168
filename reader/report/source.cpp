#include "source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <xxhash.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <utility>

#include "temporary_file.h"

namespace reader {
namespace {

// Fits into a core's own cache, so that what was read is still there when it is looked at.
constexpr size_t kBuffer = size_t{64} * 1024;
constexpr size_t kBeginning = 4096;

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
    seekable_ = S_ISREG(status.st_mode) && begin >= 0;
    again_ = again;
    if (seekable_) {
        begin_ = static_cast<uint64_t>(begin);
        posix_fadvise(fd_, 0, 0, POSIX_FADV_SEQUENTIAL);
    } else if (again && !Spool("")) {
        return error_;
    }
    buffer_.resize(kBuffer);
    return "";
}

std::string Source::TakeKey() {
    again_ = true;
    const std::unique_ptr<XXH3_state_t, decltype(&XXH3_freeState)> state(XXH3_createState(),
                                                                         XXH3_freeState);
    if (state == nullptr) {
        error_ = "no memory is left to read " + name_;
        return "";
    }
    XXH3_128bits_reset(state.get());
    for (std::string_view bytes; !(bytes = Read()).empty();) {
        XXH3_128bits_update(state.get(), bytes.data(), bytes.size());
    }
    if (!error_.empty()) return "";
    if (spool_fd_ >= 0) {
        close(fd_);
        fd_ = std::exchange(spool_fd_, -1);
        begin_ = 0;
        seekable_ = true;
    }
    size_ = buffered_.end;
    buffered_ = {};
    buffer_.resize(kBuffer);
    beginning_.clear();
    if (lseek(fd_, static_cast<off_t>(begin_), SEEK_SET) < 0) {
        error_ = "cannot read " + name_ + " again: " + Reason(errno);
        return "";
    }
    XXH128_canonical_t digest;
    XXH128_canonicalFromHash(&digest, XXH3_128bits_digest(state.get()));
    std::string key;
    for (const unsigned char byte : digest.digest) {
        constexpr std::string_view kDigits = "0123456789abcdef";
        key += {kDigits[byte >> 4], kDigits[byte & 15]};
    }
    return key;
}

std::string_view Source::Read() {
    const uint64_t wanted = std::min<uint64_t>(buffer_.size(), size_ - buffered_.end);
    ssize_t size;
    do {
        size = read(fd_, buffer_.data(), static_cast<size_t>(wanted));
    } while (size < 0 && errno == EINTR);
    if (size < 0) error_ = "cannot read " + name_ + ": " + Reason(errno);
    const std::string_view bytes(buffer_.data(), size > 0 ? static_cast<size_t>(size) : 0);
    buffered_ = {buffered_.end, buffered_.end + bytes.size()};
    if (beginning_.size() < kBeginning) {
        beginning_ += bytes.substr(0, kBeginning - beginning_.size());
    }
    if (again_ && !seekable_ && !Spool(bytes)) return {};
    if (bytes.empty() && (again_ || seekable_)) buffer_ = {};
    return bytes;
}

bool Source::Spool(std::string_view bytes) {
    if (spool_fd_ < 0) spool_fd_ = OpenTemporary();
    if (spool_fd_ < 0 || !WriteAll(spool_fd_, bytes)) {
        error_ = "cannot keep " + name_ + " in a temporary file: " + Reason(errno) +
                 "; TMPDIR names another folder for it";
        return false;
    }
    spooled_.end += bytes.size();
    return true;
}

bool Source::Keep(uint64_t from) {
    if (seekable_ || again_) return true;
    if (from >= buffered_.begin) {
        // What is wanted has been read last: the file begins anew with it.
        if (spooled_.size() > 0 &&
            (ftruncate(spool_fd_, 0) != 0 || lseek(spool_fd_, 0, SEEK_SET) != 0)) {
            error_ = "cannot empty the temporary file: " + Reason(errno);
            return false;
        }
        spooled_ = {from, from};
    }
    const std::string_view bytes = Buffered({spooled_.end, buffered_.end});
    return bytes.empty() || Spool(bytes);
}

std::string_view Source::Buffered(TextRange range) const {
    if (buffer_.empty() || range.begin < buffered_.begin || range.begin >= buffered_.end) return {};
    return std::string_view(buffer_.data() + (range.begin - buffered_.begin),
                            static_cast<size_t>(std::min(range.end, buffered_.end) - range.begin));
}

bool Source::ReadAt(TextRange range, std::string& bytes) const {
    const uint64_t wanted = bytes.size() + range.size();
    if (Buffered(range).size() < range.size()) {
        const int fd = spool_fd_ >= 0 ? spool_fd_ : fd_;
        const TextRange stored{range.begin,
                               spool_fd_ >= 0 ? std::min(range.end, spooled_.end) : range.end};
        const uint64_t begin =
                spool_fd_ >= 0 ? stored.begin - spooled_.begin : stored.begin + begin_;
        const size_t before = bytes.size();
        bytes.resize(before + (stored.end > stored.begin ? static_cast<size_t>(stored.size()) : 0));
        size_t done = before;
        while (done < bytes.size()) {
            const ssize_t size = pread(fd, &bytes[done], bytes.size() - done,
                                       static_cast<off_t>(begin + (done - before)));
            if (size < 0 && errno == EINTR) continue;
            if (size <= 0) break;
            done += static_cast<size_t>(size);
        }
        bytes.resize(done);
        range.begin += done - before;
    }
    bytes += Buffered(range);
    return bytes.size() == wanted;
}

}  // namespace reader
