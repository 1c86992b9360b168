#include "dumpstate.h"

#include <android-base/properties.h>
#include <android/log.h>

#include "section.h"

namespace aidl::android::hardware::dumpstate {
namespace {

constexpr char kVerboseLoggingProperty[] = "persist.vendor.verbose_logging_enabled";
constexpr uint32_t kModes = 8;

}  // namespace

ndk::ScopedAStatus Dumpstate::dumpstateBoard(const std::vector<ndk::ScopedFileDescriptor>& fds,
                                             DumpstateMode mode, int64_t /*timeout_millis*/) {
    if (static_cast<uint32_t>(mode) >= kModes) {
        __android_log_print(ANDROID_LOG_ERROR, nullptr, "Invalid mode: %d\n",
                            static_cast<int>(mode));
        return ndk::ScopedAStatus::fromExceptionCodeWithMessage(EX_ILLEGAL_ARGUMENT,
                                                                "Invalid mode");
    }
    if (fds.empty()) {
        return ndk::ScopedAStatus::fromExceptionCodeWithMessage(EX_ILLEGAL_ARGUMENT,
                                                                "No file descriptor");
    }
    if (fds[0].get() < 0) {
        return ndk::ScopedAStatus::fromExceptionCodeWithMessage(EX_ILLEGAL_ARGUMENT,
                                                                "Invalid file descriptor");
    }
    return dumpstateBoardImpl(fds);
}

bool Dumpstate::getVerboseLoggingEnabledImpl() {
    bool enabled = false;
    protect(kVerboseLoggingProperty,
            [&] { enabled = ::android::base::GetBoolProperty(kVerboseLoggingProperty, false); });
    return enabled;
}

ndk::ScopedAStatus Dumpstate::getVerboseLoggingEnabled(bool* enabled) {
    *enabled = getVerboseLoggingEnabledImpl();
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus Dumpstate::setVerboseLoggingEnabled(bool enabled) {
    protect(kVerboseLoggingProperty, [&] {
        ::android::base::SetProperty(kVerboseLoggingProperty, enabled ? "true" : "false");
    });
    return ndk::ScopedAStatus::ok();
}

}  // namespace aidl::android::hardware::dumpstate
