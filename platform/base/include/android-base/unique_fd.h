#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace android::base {

// Owns one descriptor, -1 for none, and closes it on every path out. errno outlives the close, so
// a failure can be told after the holder is gone.
class unique_fd {
  public:
    unique_fd() = default;
    explicit unique_fd(int fd) : fd_(fd) {}
    unique_fd(unique_fd&& other) noexcept : fd_(other.release()) {}
    unique_fd& operator=(unique_fd&& other) noexcept {
        reset(other.release());
        return *this;
    }
    ~unique_fd() { reset(); }

    void reset(int fd = -1) {
        const int error = errno;
        if (fd_ >= 0) close(fd_);
        fd_ = fd;
        errno = error;
    }

    int get() const { return fd_; }
    [[nodiscard]] int release() { return std::exchange(fd_, -1); }

  private:
    int fd_ = -1;
};

}  // namespace android::base
