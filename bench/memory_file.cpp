#include "memory_file.h"

#include <fcntl.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

MemoryFile::MemoryFile(size_t size) : fd_(memfd_create("bench", MFD_CLOEXEC)) {
    const std::string block(std::min(size, kMiB), 'x');
    for (size_t left = size; left > 0;) {
        const ssize_t written = write(fd_, block.data(), std::min(left, block.size()));
        if (written <= 0) std::abort();  // no memory
        left -= static_cast<size_t>(written);
    }
}

DrainedPipe::DrainedPipe() {
    if (pipe2(ends_, O_CLOEXEC) != 0) std::abort();
    reader_ = std::thread([in = ends_[0]] {
        std::vector<char> buffer(kMiB);
        while (read(in, buffer.data(), buffer.size()) > 0) {
        }
        close(in);
    });
}

DrainedPipe::~DrainedPipe() {
    close(ends_[1]);
    reader_.join();
}
