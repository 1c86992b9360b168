#pragma once

#include <string>

namespace android::base {

std::string StringPrintf(const char* format, ...) __attribute__((__format__(printf, 1, 2)));

}  // namespace android::base
