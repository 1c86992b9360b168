#include <android-base/logging.h>
#include <android/log.h>

#include <cstdlib>
#include <system_error>

namespace android::base {
namespace {

android_LogPriority PriorityOf(LogSeverity severity) {
    switch (severity) {
        case VERBOSE:
            return ANDROID_LOG_VERBOSE;
        case DEBUG:
            return ANDROID_LOG_DEBUG;
        case INFO:
            return ANDROID_LOG_INFO;
        case WARNING:
            return ANDROID_LOG_WARN;
        case ERROR:
            return ANDROID_LOG_ERROR;
        case FATAL_WITHOUT_ABORT:
        case FATAL:
            break;
    }
    return ANDROID_LOG_FATAL;
}

}  // namespace

LogMessage::LogMessage(const char* file, unsigned int line, LogSeverity severity, const char* tag,
                       int error)
    : file_(file), line_(line), severity_(severity), tag_(tag), error_(error) {}

LogMessage::~LogMessage() {
    if (error_ >= 0) text_ << ": " << std::generic_category().message(error_);
    __android_log_print(PriorityOf(severity_), tag_, "%s", text_.str().c_str());
    if (severity_ != FATAL) return;
    __android_log_print(ANDROID_LOG_FATAL, tag_, "aborting at %s:%u", file_, line_);
    std::abort();
}

}  // namespace android::base
