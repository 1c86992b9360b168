#pragma once

#include <chrono>
#include <ctime>

namespace aidl::android::hardware::dumpstate {

// Bounds a write(2) to a descriptor that may block for as long as its reader likes. The descriptor
// is somebody else's, so it can't be made non-blocking; instead a signal on this thread breaks the
// call, which then returns what it has written so far, or fails with EINTR.
//
// One thread, one alarm at a time in the process. Where no timer is to be had, writes are
// unbounded.
class WriteAlarm {
  public:
    WriteAlarm();
    ~WriteAlarm();
    WriteAlarm(const WriteAlarm&) = delete;
    WriteAlarm& operator=(const WriteAlarm&) = delete;

    // From now on, writes are broken once this much time has passed, or up to a second more: a
    // stream of writes sets it before each of them, and most of that must cost no system call.
    void Set(std::chrono::seconds patience);
    // Whether it has.
    bool rang() const;

  private:
    timer_t timer_{};
    bool exists_ = false;
    std::chrono::steady_clock::time_point set_at_{};
};

}  // namespace aidl::android::hardware::dumpstate
