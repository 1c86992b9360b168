#pragma once

#include <android/log.h>

#include <exception>

namespace tev::dumpstate {

// Runs what may find no memory or thread left, for which the standard library throws: a step of the
// report, an entry of a section, a query, a message. It costs what was run and a line in the log,
// under the tag or else the program's own, and nothing that comes after it. A query has its
// cautious answer beforehand.
template <typename Step>
void protect(const char* tag, const char* name, Step step) noexcept {
    try {
        step();
    } catch (const std::exception& failure) {
        __android_log_print(ANDROID_LOG_ERROR, tag, "%s: %s", name, failure.what());
    }
}

template <typename Step>
void protect(const char* name, Step step) noexcept {
    protect(nullptr, name, step);
}

}  // namespace tev::dumpstate
