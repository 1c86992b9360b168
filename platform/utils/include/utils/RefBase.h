#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

namespace android {

// An intrusive reference count: an object that sp<> shares derives from it and is deleted, through
// its virtual destructor, on the thread that lets go of the last reference. Counts are atomic.
class VirtualLightRefBase {
  public:
    VirtualLightRefBase() = default;
    virtual ~VirtualLightRefBase() = default;
    VirtualLightRefBase(const VirtualLightRefBase&) = delete;
    VirtualLightRefBase& operator=(const VirtualLightRefBase&) = delete;

    void incStrong(const void* /*holder*/) const { count_.fetch_add(1, std::memory_order_relaxed); }
    void decStrong(const void* /*holder*/) const {
        if (count_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
    }

  private:
    mutable std::atomic<int32_t> count_ = 0;
};

// A strong reference, or none. One sp is one thread's; several may share the object.
template <typename T>
class sp {
  public:
    sp() = default;
    explicit(false) sp(T* object) : object_(object) {
        if (object_ != nullptr) object_->incStrong(this);
    }
    // The analyzer takes each end of a reference for the last.
    // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDelete)
    sp(const sp& other) : sp(other.object_) {}
    sp(sp&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    template <typename U>
    explicit(false) sp(const sp<U>& other) : sp(other.get()) {}
    sp& operator=(sp other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    ~sp() { clear(); }

    void clear() {
        T* const object = std::exchange(object_, nullptr);
        if (object != nullptr) object->decStrong(this);
    }

    T* get() const { return object_; }
    T* operator->() const { return object_; }
    T& operator*() const { return *object_; }
    explicit operator bool() const { return object_ != nullptr; }

  private:
    T* object_ = nullptr;
};

}  // namespace android
