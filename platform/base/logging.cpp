#include <android-base/logging.h>
#include <android/log.h>

#include <algorithm>
#include <cstdlib>
#include <system_error>

namespace android::base {
LogMessage::LogMessage(const char* file, unsigned int line, LogSeverity severity, const char* tag,
                       int error)
    : file_(file), line_(line), severity_(severity), tag_(tag), error_(error) {}

LogMessage::~LogMessage() {
    if (error_ >= 0) text_ << ": " << std::generic_category().message(error_);
    const int priority = std::min<int>(int{severity_} + ANDROID_LOG_VERBOSE, ANDROID_LOG_FATAL);
    __android_log_print(priority, tag_, "%s", text_.str().c_str());
    if (severity_ != FATAL) return;
    __android_log_print(ANDROID_LOG_FATAL, tag_, "aborting at %s:%u", file_, line_);
    std::abort();
}

}  // namespace android::base
