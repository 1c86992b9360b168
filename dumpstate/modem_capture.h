#pragma once

#include <pthread.h>

namespace aidl::android::hardware::dumpstate {

// Collects the modem's logs into the staging directory on a thread of its own, because most of that
// is waiting: for the modem to write its file system out, and for its diagnostic logger to stop
// before its files are copied. Beside the file system and the modem's properties the thread shares
// nothing with the report, and it writes nothing into it. It takes some three seconds, and up to
// ten more, plus five for each copy, when logger or storage hang.
class ModemCapture {
  public:
    ModemCapture() = default;
    ~ModemCapture() { Join(); }
    ModemCapture(const ModemCapture&) = delete;
    ModemCapture& operator=(const ModemCapture&) = delete;

    // Without a thread to be had, the log says so and nothing is captured. Once.
    void Start();
    // Waits until the thread, if one was started, has finished.
    void Join();

  private:
    pthread_t thread_{};
    bool running_ = false;
};

}  // namespace aidl::android::hardware::dumpstate
