#pragma once

#include <android/log.h>

namespace aidl::android::hardware::dumpstate {

inline void debug(const char* message) {
    __android_log_print(ANDROID_LOG_DEBUG, nullptr, "%s", message);
}

}  // namespace aidl::android::hardware::dumpstate
