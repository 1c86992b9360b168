#pragma once

#include <cstddef>
#include <string>
#include <thread>

inline constexpr size_t kMiB = size_t{1} << 20;

// A file to read from, in memory: a disk's write-back would be all that is measured.
class TemporaryFile {
  public:
    explicit TemporaryFile(size_t size);
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::string& path() const { return path_; }

  private:
    std::string path_ = "/dev/shm/bench.XXXXXX";
};

// Where bytes go: a pipe that a thread empties, or a file in memory.
class Sink {
  public:
    enum class Kind { kPipe, kFile };

    explicit Sink(Kind kind);
    ~Sink();
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;

    int fd() const { return fd_; }
    // Waits until the pipe's reader has all; nothing can be written any more. A file has nothing to
    // wait for, and its memory is the destructor's to free.
    void Finish();

  private:
    int fd_ = -1;
    std::thread reader_;
};
