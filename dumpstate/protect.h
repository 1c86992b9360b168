#pragma once

#include <android/log.h>

#include <exception>

namespace aidl::android::hardware::dumpstate {

// Runs one step of the report. What the standard library throws when there is no memory or thread
// left costs the report that step, not the steps after it.
template <typename Step>
void protect(const char* name, Step step) noexcept {
    try {
        step();
    } catch (const std::exception& failure) {
        __android_log_print(ANDROID_LOG_ERROR, nullptr, "%s: %s", name, failure.what());
    }
}

}  // namespace aidl::android::hardware::dumpstate
