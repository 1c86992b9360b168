#pragma once

#include <android/binder_interface_utils.h>

#include <cstdint>
#include <string>
#include <vector>

namespace aidl::android::hardware::dumpstate {

// Version 1 of the dumpstate device interface.
class IDumpstateDevice : public ndk::ICInterface {
  public:
    static const char* const descriptor;
    static const int32_t version;
    static const std::string hash;

    enum class DumpstateMode : int32_t {
        FULL = 0,
        INTERACTIVE = 1,
        REMOTE = 2,
        WEAR = 3,
        CONNECTIVITY = 4,
        WIFI = 5,
        DEFAULT = 6,
        PROTO = 7,
    };

    // The descriptors stay the caller's.
    virtual ndk::ScopedAStatus dumpstateBoard(const std::vector<ndk::ScopedFileDescriptor>& fds,
                                              DumpstateMode mode, int64_t timeout_millis) = 0;
    virtual ndk::ScopedAStatus getVerboseLoggingEnabled(bool* enabled) = 0;
    virtual ndk::ScopedAStatus setVerboseLoggingEnabled(bool enabled) = 0;
    virtual ndk::ScopedAStatus getInterfaceVersion(int32_t* version) = 0;
    virtual ndk::ScopedAStatus getInterfaceHash(std::string* hash) = 0;
};

}  // namespace aidl::android::hardware::dumpstate
