#include <optional>

#include "dumpstate.h"
#include "modem_capture.h"
#include "protect.h"
#include "report_writer.h"
#include "section.h"
#include "sensor_hub.h"
#include "staging.h"

namespace aidl::android::hardware::dumpstate {
namespace {

enum DevelopmentGroup { kTzLog = 1 };

constexpr Entry CopyToStaging(const char* title, const char* source, int development_group) {
    return Command(title, {"/vendor/bin/cp", "-r", source, kStagingDirectory}, 10,
                   development_group);
}

constexpr Entry kStaging[] = {
        Command("RM DUMPSTATE BIN DIR", {"/vendor/bin/rm", "-r", kStagingDirectory}, 2),
        Command("MKDIR DUMPSTATE BIN DIR", {"/vendor/bin/mkdir", "-p", kStagingDirectory}, 2),
};

constexpr Entry kProperties[] = {Command("VENDOR PROPERTIES", {"/vendor/bin/getprop"})};

constexpr Entry kStorageAndWlan[] = {
        Command("DUMP EMMC VENDOR", {"/vendor/bin/cat", "/sys/class/mmc_host/mmc0/mmc0:0001/name"},
                10),
        Command("DUMP EMMC VERSION", {"/vendor/bin/cat", "/sys/block/mmcblk0/device/fwrev"}, 10),
        File("WLAN FW Log Symbol Table", "/vendor/firmware/Data.msc"),
};

void writeVerboseLine(int fd, bool enabled) {
    tev::dumpstate::PrintToReport(fd, "verbose logging: %s\n", enabled ? "enabled" : "disabled");
}

// One call's report in the making.
struct Report {
    Dumpstate& dumpstate;
    const int fd;
    const std::optional<int> bundle_fd;  // none when the caller passed no second descriptor
    ModemCapture capture;

    bool HasBundle() const { return bundle_fd && *bundle_fd >= 1; }
};

void stage(Report& report) {
    if (!report.bundle_fd) return;
    dumpEntries(report.fd, kStaging);
    // Asked anew: the setting may have changed while the directories were made. A capture that no
    // bundle will hold isn't begun: it would stop the modem's logger and keep the caller waiting
    // for nothing.
    bool verbose = false;
    report.dumpstate.getVerboseLoggingEnabled(&verbose);
    if (verbose && report.HasBundle()) report.capture.Start();
}

void bundle(Report& report) {
    if (!report.HasBundle()) return;
    const Entry copies[] = {
            CopyToStaging("CP MCU LOG", tev::dumpstate::getMcuLogDataPath(), Entry::kEveryBuild),
            CopyToStaging("CP TZ LOG", "/data/vendor/log/tz", kTzLog),
    };
    dumpEntries(report.fd, copies);
    report.capture.Join();
    report.dumpstate.createDumpstateBin(report.fd, *report.bundle_fd);
}

template <void (Dumpstate::*dump)(int fd)>
void section(Report& report) {
    (report.dumpstate.*dump)(report.fd);
}

template <auto& entries>
void list(Report& report) {
    dumpEntries(report.fd, entries);
}

struct Step {
    const char* name;  // in the system log, should the step fail as a whole
    void (*run)(Report& report);
};

constexpr Step kSteps[] = {
        {"staging", stage},
        {"properties", list<kProperties>},
        {"bluetooth", section<&Dumpstate::dumpBluetooth>},
        {"sensor hub", [](Report& report) { tev::dumpstate::dump(report.fd); }},
        {"ramoops", section<&Dumpstate::dumpRamoops>},
        {"bundle", bundle},
        {"touch", section<&Dumpstate::dumpTouch>},
        {"interrupts", section<&Dumpstate::dumpInterrupts>},
        {"power", section<&Dumpstate::dumpPowerSection>},
        {"extcon", section<&Dumpstate::dumpExtconStates>},
        {"velora", section<&Dumpstate::dumpVelora>},
        {"sleep", section<&Dumpstate::dumpSleepStats>},
        {"bootloader", section<&Dumpstate::dumpBldrLog>},
        {"storage and wlan", list<kStorageAndWlan>},
        {"modem", section<&Dumpstate::dumpModem>},
};

}  // namespace

ndk::ScopedAStatus Dumpstate::dumpstateBoardImpl(
        const std::vector<ndk::ScopedFileDescriptor>& fds) {
    Report report{
            *this, fds[0].get(), fds.size() < 2 ? std::nullopt : std::optional(fds[1].get()), {}};
    protect("verbose logging",
            [&] { writeVerboseLine(report.fd, getVerboseLoggingEnabledImpl()); });
    for (const Step& step : kSteps) {
        protect(step.name, [&] { step.run(report); });
    }
    return ndk::ScopedAStatus::ok();
}

}  // namespace aidl::android::hardware::dumpstate
