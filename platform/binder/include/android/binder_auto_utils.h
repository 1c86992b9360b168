#pragma once

#include <android/binder_ibinder.h>
#include <android/binder_status.h>
#include <unistd.h>

#include <utility>

namespace ndk {

// A strong reference to a binder, or none. Construction from a pointer takes the caller's over.
class SpAIBinder {
  public:
    SpAIBinder() = default;
    explicit SpAIBinder(AIBinder* binder) : binder_(binder) {}
    SpAIBinder(const SpAIBinder& other) : binder_(other.binder_) {
        if (binder_ != nullptr) AIBinder_incStrong(binder_);
    }
    SpAIBinder(SpAIBinder&& other) noexcept : binder_(std::exchange(other.binder_, nullptr)) {}
    SpAIBinder& operator=(SpAIBinder other) noexcept {
        std::swap(binder_, other.binder_);
        return *this;
    }
    ~SpAIBinder() { AIBinder_decStrong(binder_); }

    AIBinder* get() const { return binder_; }

  private:
    AIBinder* binder_ = nullptr;
};

// A weak reference to a binder, or none.
class ScopedAIBinder_Weak {
  public:
    ScopedAIBinder_Weak() = default;
    explicit ScopedAIBinder_Weak(AIBinder_Weak* weak) : weak_(weak) {}
    ScopedAIBinder_Weak(ScopedAIBinder_Weak&& other) noexcept
        : weak_(std::exchange(other.weak_, nullptr)) {}
    ScopedAIBinder_Weak& operator=(ScopedAIBinder_Weak&& other) noexcept {
        std::swap(weak_, other.weak_);
        return *this;
    }
    ~ScopedAIBinder_Weak() { AIBinder_Weak_delete(weak_); }

    SpAIBinder promote() const {
        return SpAIBinder(weak_ == nullptr ? nullptr : AIBinder_Weak_promote(weak_));
    }

  private:
    AIBinder_Weak* weak_ = nullptr;
};

// Owns one status.
class ScopedAStatus {
  public:
    explicit ScopedAStatus(AStatus* status) : status_(status) {}
    ScopedAStatus(ScopedAStatus&& other) noexcept
        : status_(std::exchange(other.status_, nullptr)) {}
    ScopedAStatus& operator=(ScopedAStatus&& other) noexcept {
        std::swap(status_, other.status_);
        return *this;
    }
    ~ScopedAStatus() { AStatus_delete(status_); }

    static ScopedAStatus ok() { return ScopedAStatus(AStatus_newOk()); }
    static ScopedAStatus fromExceptionCodeWithMessage(binder_exception_t exception,
                                                      const char* message) {
        return ScopedAStatus(AStatus_fromExceptionCodeWithMessage(exception, message));
    }

    bool isOk() const { return AStatus_isOk(status_); }
    binder_exception_t getExceptionCode() const { return AStatus_getExceptionCode(status_); }
    const char* getMessage() const { return AStatus_getMessage(status_); }

  private:
    AStatus* status_;
};

// Owns one descriptor, or none when negative.
class ScopedFileDescriptor {
  public:
    ScopedFileDescriptor() = default;
    explicit ScopedFileDescriptor(int fd) : fd_(fd) {}
    ScopedFileDescriptor(ScopedFileDescriptor&& other) noexcept : fd_(other.release()) {}
    ScopedFileDescriptor& operator=(ScopedFileDescriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~ScopedFileDescriptor() {
        if (fd_ >= 0) close(fd_);
    }

    int get() const { return fd_; }
    [[nodiscard]] int release() { return std::exchange(fd_, -1); }

  private:
    int fd_ = -1;
};

}  // namespace ndk
