#include "files.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

TemporaryFile::TemporaryFile(size_t size) {
    const int fd = mkostemp(path_.data(), O_CLOEXEC);
    const std::string block(kMiB, 'x');
    for (size_t left = size; left > 0;) {
        const ssize_t written = write(fd, block.data(), std::min(left, block.size()));
        if (written <= 0) break;
        left -= static_cast<size_t>(written);
    }
    close(fd);
}

TemporaryFile::~TemporaryFile() {
    unlink(path_.c_str());
}

Sink::Sink(Kind kind) {
    if (kind == Kind::kFile) {
        fd_ = memfd_create("sink", MFD_CLOEXEC);
        return;
    }
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return;
    fd_ = ends[1];
    reader_ = std::thread([in = ends[0]] {
        std::vector<char> buffer(kMiB);
        while (read(in, buffer.data(), buffer.size()) > 0) {
        }
        close(in);
    });
}

Sink::~Sink() {
    Finish();
    if (fd_ >= 0) close(fd_);
}

void Sink::Finish() {
    if (!reader_.joinable()) return;
    close(fd_);
    fd_ = -1;
    reader_.join();
}
