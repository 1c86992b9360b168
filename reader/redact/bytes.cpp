#include "bytes.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "temporary_file.h"

namespace reader {
namespace {

constexpr size_t kInMemory = size_t{1} << 20;

std::string_view ReadAt(int fd, uint64_t at, size_t most, std::vector<char>& buffer,
                        std::string& error) {
    if (buffer.size() < most) buffer.resize(most);
    ssize_t size;
    do {
        size = pread(fd, buffer.data(), most, static_cast<off_t>(at));
    } while (size < 0 && errno == EINTR);
    if (size < 0) error = Reason(errno);
    return {buffer.data(), size > 0 ? static_cast<size_t>(size) : 0};
}

}  // namespace

std::string_view FileBytes::Read(size_t most) {
    const std::string_view bytes = ReadAt(fd_, at_, most, buffer_, error_);
    at_ += bytes.size();
    return bytes;
}

std::string_view PartBytes::Read(size_t most) {
    most = static_cast<size_t>(std::min<uint64_t>(most, left_));
    if (most == 0) return {};
    std::string_view bytes = std::string_view(head_).substr(taken_, most);
    taken_ += bytes.size();
    if (bytes.empty()) bytes = from_.Read(most);
    left_ -= bytes.size();
    return bytes;
}

std::string ReadExactly(ByteSource& from, size_t size) {
    std::string all;
    while (all.size() < size) {
        const std::string_view bytes = from.Read(size - all.size());
        if (bytes.empty()) break;
        all += bytes;
    }
    return all;
}

Spool::~Spool() {
    if (fd_ >= 0) close(fd_);
}

bool Spool::Write(std::string_view bytes) {
    if (!error_.empty()) return false;
    size_ += bytes.size();
    memory_ += bytes;
    if (memory_.size() < kInMemory) return true;
    if (fd_ < 0) fd_ = OpenTemporary();
    if (fd_ < 0 || !WriteAll(fd_, memory_)) {
        error_ = "cannot keep a part in a temporary file: " + Reason(errno) +
                 "; TMPDIR names another folder for it";
    }
    memory_.clear();
    return error_.empty();
}

void Spool::Rewind() {
    read_ = 0;
}

std::string_view Spool::Read(size_t most) {
    // The file has all but what is in memory still.
    const uint64_t in_file = size_ - memory_.size();
    std::string_view bytes;
    if (read_ < in_file) {
        most = static_cast<size_t>(std::min<uint64_t>(most, in_file - read_));
        bytes = ReadAt(fd_, read_, most, buffer_, error_);
    } else {
        bytes = std::string_view(memory_).substr(static_cast<size_t>(read_ - in_file), most);
    }
    read_ += bytes.size();
    return bytes;
}

}  // namespace reader
