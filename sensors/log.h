#pragma once

#include <android/log.h>

#include <exception>

namespace tev::dumpstate {

inline constexpr char kLogTag[] = "tev-dumpstate";

// Runs one step. What the standard library throws when there is no memory or thread left costs that
// step and a line in the log, not the thread it runs on.
template <typename Step>
void protect(const char* name, Step step) noexcept {
    try {
        step();
    } catch (const std::exception& failure) {
        __android_log_print(ANDROID_LOG_ERROR, kLogTag, "%s: %s", name, failure.what());
    }
}

}  // namespace tev::dumpstate
