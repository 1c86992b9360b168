#pragma once

#include <android/binder_auto_utils.h>

#include <memory>
#include <mutex>
#include <utility>

namespace ndk {

// The base of every interface object. Objects are made by make() only, and shared from then on.
class SharedRefBase : public std::enable_shared_from_this<SharedRefBase> {
  public:
    virtual ~SharedRefBase() = default;
    SharedRefBase(const SharedRefBase&) = delete;
    SharedRefBase& operator=(const SharedRefBase&) = delete;

    template <typename T, typename... Arguments>
    static std::shared_ptr<T> make(Arguments&&... arguments) {
        return std::make_shared<T>(std::forward<Arguments>(arguments)...);
    }

  protected:
    SharedRefBase() = default;
};

class ICInterface : public SharedRefBase {
  public:
    virtual SpAIBinder asBinder() = 0;
    virtual bool isRemote() = 0;
    // The generic dump and shell entry points: write nothing.
    virtual binder_status_t dump(int /*fd*/, const char** /*arguments*/, uint32_t /*count*/) {
        return STATUS_OK;
    }
    virtual binder_status_t handleShellCommand(int /*in*/, int /*out*/, int /*err*/,
                                               const char** /*arguments*/, uint32_t /*count*/) {
        return STATUS_OK;
    }
};

// The base of an interface that is implemented in this process.
template <typename Interface>
class BnCInterface : public Interface {
  public:
    // The same binder as long as anybody holds a reference to it. Any thread may call.
    SpAIBinder asBinder() override {
        const std::lock_guard lock(mutex_);
        SpAIBinder binder = weak_.promote();
        if (binder.get() == nullptr) {
            binder = createBinder();
            weak_ = ScopedAIBinder_Weak(AIBinder_Weak_new(binder.get()));
        }
        return binder;
    }
    bool isRemote() override { return false; }

  protected:
    virtual SpAIBinder createBinder() = 0;

  private:
    std::mutex mutex_;
    ScopedAIBinder_Weak weak_;
};

}  // namespace ndk
