#include <poll.h>

#include <cstdio>

#include "dumpstate.h"
#include "protect.h"
#include "section.h"

namespace aidl::android::hardware::dumpstate {
namespace {

constexpr Entry kProperties[] = {Command("VENDOR PROPERTIES", {"/vendor/bin/getprop"})};

constexpr Entry kStorageAndWlan[] = {
        Command("DUMP EMMC VENDOR", {"/vendor/bin/cat", "/sys/class/mmc_host/mmc0/mmc0:0001/name"},
                10),
        Command("DUMP EMMC VERSION", {"/vendor/bin/cat", "/sys/block/mmcblk0/device/fwrev"}, 10),
        File("WLAN FW Log Symbol Table", "/vendor/firmware/Data.msc"),
};

// A reader that takes nothing must not hold the report for ever: this line is the only write here
// that no primitive bounds.
void writeVerboseLine(int fd, bool enabled) {
    constexpr int kPatienceMillis = 5000;
    pollfd writable{fd, POLLOUT, 0};
    if (poll(&writable, 1, kPatienceMillis) > 0) {
        dprintf(fd, "verbose logging: %s\n", enabled ? "enabled" : "disabled");
    }
}

struct Section {
    const char* name;
    void (*dump)(Dumpstate& dumpstate, int fd);
};

constexpr Section kSections[] = {
        {"properties", [](Dumpstate&, int fd) { dumpEntries(fd, kProperties); }},
        {"touch", [](Dumpstate& dumpstate, int fd) { dumpstate.dumpTouch(fd); }},
        {"interrupts", [](Dumpstate& dumpstate, int fd) { dumpstate.dumpInterrupts(fd); }},
        {"power", [](Dumpstate& dumpstate, int fd) { dumpstate.dumpPowerSection(fd); }},
        {"extcon", [](Dumpstate& dumpstate, int fd) { dumpstate.dumpExtconStates(fd); }},
        {"velora", [](Dumpstate& dumpstate, int fd) { dumpstate.dumpVelora(fd); }},
        {"sleep", [](Dumpstate& dumpstate, int fd) { dumpstate.dumpSleepStats(fd); }},
        {"bootloader", [](Dumpstate& dumpstate, int fd) { dumpstate.dumpBldrLog(fd); }},
        {"storage and wlan", [](Dumpstate&, int fd) { dumpEntries(fd, kStorageAndWlan); }},
        {"modem", [](Dumpstate& dumpstate, int fd) { dumpstate.dumpModem(fd); }},
};

}  // namespace

ndk::ScopedAStatus Dumpstate::dumpstateBoardImpl(
        const std::vector<ndk::ScopedFileDescriptor>& fds) {
    const int fd = fds[0].get();
    writeVerboseLine(fd, getVerboseLoggingEnabledImpl());
    for (const Section& section : kSections) {
        protect(section.name, [&] { section.dump(*this, fd); });
    }
    return ndk::ScopedAStatus::ok();
}

}  // namespace aidl::android::hardware::dumpstate
