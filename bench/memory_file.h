#pragma once

#include <unistd.h>

#include <cstddef>
#include <string>
#include <thread>

inline constexpr size_t kMiB = size_t{1} << 20;

// A file in memory, since a disk's write-back would be all that is measured.
class MemoryFile {
  public:
    explicit MemoryFile(size_t size = 0);  // filled with some letter
    ~MemoryFile() { close(fd_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    int fd() const { return fd_; }
    void Rewind() const { lseek(fd_, 0, SEEK_SET); }
    // As long as this process lives, for any of the same user.
    std::string path() const {
        return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(fd_);
    }

  private:
    const int fd_;
};

// A pipe that a thread empties.
class DrainedPipe {
  public:
    DrainedPipe();
    ~DrainedPipe();  // waits until the thread has all

    int fd() const { return ends_[1]; }

  private:
    int ends_[2] = {-1, -1};
    std::thread reader_;
};
