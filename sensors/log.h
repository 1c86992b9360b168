#pragma once

#include <android/log.h>

namespace tev::dumpstate {

inline constexpr char kLogTag[] = "tev-dumpstate";

}  // namespace tev::dumpstate

// A record of the sensors' own: DEBUG, INFO, WARN or ERROR, a printf format and its arguments.
#define SENSOR_LOG(priority, ...) \
    __android_log_print(ANDROID_LOG_##priority, ::tev::dumpstate::kLogTag, __VA_ARGS__)
