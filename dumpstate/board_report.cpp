#include <fcntl.h>

#include <chrono>

#include "dumpstate.h"
#include "modem_capture.h"
#include "report_writer.h"
#include "section.h"
#include "sensor_hub.h"
#include "staging.h"

namespace aidl::android::hardware::dumpstate {
namespace {

using namespace std::chrono_literals;

constexpr Entry kStaging[] = {
        Command("RM DUMPSTATE BIN DIR", {"/vendor/bin/rm", "-r", kStagingDirectory}, 2s),
        Command("MKDIR DUMPSTATE BIN DIR", {"/vendor/bin/mkdir", "-p", kStagingDirectory}, 2s),
};

constexpr Entry kProperties[] = {Command("VENDOR PROPERTIES", {"/vendor/bin/getprop"})};

constexpr Entry kStorageAndWlan[] = {
        Command("DUMP EMMC VENDOR", {"/vendor/bin/cat", "/sys/class/mmc_host/mmc0/mmc0:0001/name"},
                10s),
        Command("DUMP EMMC VERSION", {"/vendor/bin/cat", "/sys/block/mmcblk0/device/fwrev"}, 10s),
        File("WLAN FW Log Symbol Table", "/vendor/firmware/Data.msc"),
};

// As large as anybody may make a pipe: an ordinary report then fits in as a whole, and a reader
// that pauses misses nothing.
void enlargePipe(int fd) {
    constexpr int kMost = 1 << 20;
    if (const int size = fcntl(fd, F_GETPIPE_SZ); size > 0 && size < kMost) {
        fcntl(fd, F_SETPIPE_SZ, kMost);
    }
}

void writeVerboseLine(int fd, bool enabled) {
    tev::dumpstate::PrintToReport(fd, "verbose logging: %s\n", enabled ? "enabled" : "disabled");
}

void copyDirectories(int fd) {
    const Entry copies[] = {
            CopyToStaging("CP MCU LOG", tev::dumpstate::getMcuLogDataPath(), 10s),
            CopyToStaging("CP TZ LOG", "/data/vendor/log/tz", 10s).On(Builds::kDevelopment),
    };
    dumpEntries(fd, copies);
}

}  // namespace

// The whole report in its order. No step throws: entries and questions are protected each by
// itself.
ndk::ScopedAStatus Dumpstate::dumpstateBoardImpl(
        const std::vector<ndk::ScopedFileDescriptor>& fds) {
    const int fd = fds[0].get();
    const bool is_staged = fds.size() >= 2;
    const int bundle_fd = is_staged ? fds[1].get() : -1;
    const bool has_bundle = bundle_fd >= 1;
    ModemCapture capture;

    enlargePipe(fd);
    writeVerboseLine(fd, getVerboseLoggingEnabledImpl());
    if (is_staged) {
        dumpEntries(fd, kStaging);
        // The setting is asked for anew: it may have changed while the directories were made. A
        // capture that no bundle will hold isn't begun: it would stop the modem's logger and keep
        // the caller waiting for nothing.
        const bool verbose = getVerboseLoggingEnabledImpl();
        if (has_bundle) setLeftoversAside();
        if (has_bundle && verbose) capture.Start();
    }
    dumpEntries(fd, kProperties);
    dumpBluetooth(fd);
    tev::dumpstate::dump(fd);
    dumpRamoops(fd);
    if (has_bundle) {
        copyDirectories(fd);
        capture.Join();
        createDumpstateBin(fd, bundle_fd);
    }
    dumpTouch(fd);
    dumpInterrupts(fd);
    dumpPowerSection(fd);
    dumpExtconStates(fd);
    dumpVelora(fd);
    dumpSleepStats(fd);
    dumpBldrLog(fd);
    dumpEntries(fd, kStorageAndWlan);
    dumpModem(fd);
    return ndk::ScopedAStatus::ok();
}

}  // namespace aidl::android::hardware::dumpstate
