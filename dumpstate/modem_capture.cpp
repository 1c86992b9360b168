#include "modem_capture.h"

#include <android-base/properties.h>
#include <android/log.h>
#include <unistd.h>

#include <chrono>

#include "debug_record.h"
#include "log_copy.h"
#include "section.h"
#include "staging.h"

namespace aidl::android::hardware::dumpstate {
namespace {

using ::android::base::GetBoolProperty;
using ::android::base::GetIntProperty;
using ::android::base::SetProperty;
using ::android::base::WaitForProperty;
using namespace std::chrono_literals;

constexpr char kEfsDumpProperty[] = "vendor.sys.modem.diag.efsdump";
constexpr char kLoggingEnabledProperty[] = "persist.vendor.sys.modem.diag.mdlog";
constexpr char kLoggerRunningProperty[] = "vendor.sys.modem.diag.mdlog_on";
constexpr char kLoggerControlProperty[] = "vendor.sys.modem.diag.mdlog";
constexpr char kLogCountProperty[] = "persist.vendor.sys.modem.diag.mdlog_br_num";

constexpr unsigned kEfsDumpPauseSeconds = 2;
constexpr unsigned kFlushPauseSeconds = 1;
constexpr std::chrono::milliseconds kLoggerPatience{10000};
constexpr int kExtendedLogs = 100;
constexpr int kDiagnosticLogs = 100;

constexpr Entry kDiagTrace[] = {
        CopyToStaging("CP DIAG TRACE", "/data/vendor/radio/diag_logs/diag_trace.txt", 5s)};
constexpr Entry kModemEfs[] = {
        CopyToStaging("CP MODEM EFS", "/data/vendor/rfs/mpss/modem_efs", 5s)};
constexpr Entry kPowerOnLog[] = {CopyToStaging(
        "CP DIAG POWERON LOG", "/data/vendor/radio/diag_logs/logs/diag_poweron_log.qmdl", 5s)};

void copySeries(const char* directory, int limit, const char* prefix) {
    protect(prefix, [&] { dumpLogs(STDOUT_FILENO, directory, kStagingDirectory, limit, prefix); });
}

void set(const char* property, const char* value) {
    protect(property, [&] { SetProperty(property, value); });
}

// A signal's handler ends a sleep, of which whole seconds are left.
void sleepThrough(unsigned seconds) {
    while (seconds > 0) seconds = sleep(seconds);
}

bool isOn(const char* property) {
    bool on = false;
    protect(property, [&] { on = GetBoolProperty(property, false); });
    return on;
}

void captureRadioAndEfs() {
    copySeries("/data/vendor/radio/extended_logs", kExtendedLogs, "extended_log_");
    dumpEntries(STDOUT_FILENO, kDiagTrace);
    set(kEfsDumpProperty, "true");
    sleepThrough(kEfsDumpPauseSeconds);
    dumpEntries(STDOUT_FILENO, kModemEfs);
    set(kEfsDumpProperty, "false");
    protect("radio logs", [] { dumpRilLogs(STDOUT_FILENO, kStagingDirectory); });
}

void stopLogger() {
    set(kLoggerControlProperty, "false");
    debug("Stopping diag_mdlog...\n");
    bool stopped = false;
    protect(kLoggerRunningProperty,
            [&] { stopped = WaitForProperty(kLoggerRunningProperty, "false", kLoggerPatience); });
    if (stopped) {
        debug("diag_mdlog exited");
    } else {
        __android_log_print(ANDROID_LOG_ERROR, nullptr, "Waited mdlog timeout after 10 second");
    }
}

void captureDiagnosticLogs() {
    const bool enabled = isOn(kLoggingEnabledProperty);
    const bool running = isOn(kLoggerRunningProperty);
    if (enabled && running) stopLogger();
    if (enabled && !running) debug("diag_mdlog is not running\n");

    sleepThrough(kFlushPauseSeconds);
    debug("Waited modem for 1 second to flush logs");
    if (!enabled) return;

    int limit = kDiagnosticLogs;
    protect(kLogCountProperty,
            [&] { limit = GetIntProperty<int>(kLogCountProperty, kDiagnosticLogs); });
    copySeries("/data/vendor/radio/diag_logs/logs", limit, "diag_log_");
    // Also when it never said that it stopped: it was asked to, and logging is wanted.
    if (running) {
        debug("Restarting diag_mdlog...\n");
        set(kLoggerControlProperty, "true");
    }
}

void* dumpModemThread(void* /*argument*/) {
    debug("dumpModemThread started\n");
    if (!isUserBuild()) captureRadioAndEfs();
    captureDiagnosticLogs();
    dumpEntries(STDOUT_FILENO, kPowerOnLog);
    debug("dumpModemThread finished\n");
    return nullptr;
}

}  // namespace

void ModemCapture::Start() {
    running_ = pthread_create(&thread_, nullptr, dumpModemThread, nullptr) == 0;
    if (!running_) {
        __android_log_print(ANDROID_LOG_ERROR, nullptr, "could not create thread for dumpModem\n");
    }
}

void ModemCapture::Join() {
    if (running_) pthread_join(thread_, nullptr);
    running_ = false;
}

}  // namespace aidl::android::hardware::dumpstate
