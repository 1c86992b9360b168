#include <DumpstateUtil.h>
#include <android-base/properties.h>
#include <dirent.h>

#include <memory>

#include "dumpstate.h"
#include "section.h"

namespace aidl::android::hardware::dumpstate {
namespace {

using namespace std::chrono_literals;

constexpr char kSleepStatsDirectory[] = "/d/qcom_sleep_stats";

constexpr Entry kInterrupts[] = {File("INTERRUPTS", "/proc/interrupts")};

constexpr Entry kSleepStats[] = {
        Script("Sleep Stats",
               "cd /d/qcom_sleep_stats; for f in `ls *` ; do echo \"$f:\n `cat $f`\" ; done"),
};

constexpr Entry kBootloader[] = {
        Script("Bootloader Log file of current boot",
               "cat -etv /mnt/vendor/bldr_log/CurFile.txt | sed 's/@^//g'; echo \"\"", 2s)
                .On(Builds::kDevelopment),
        Script("Bootloader Log",
               " cd /mnt/vendor/bldr_log/; for f in `ls Uefi*` ; do echo \" \";"
               " echo ====== $f ======; cat -etv $f | sed 's/@^//g'; done ; echo \"\"",
               10s)
                .On(Builds::kAsTheRowAbove),
};

constexpr Entry kModem[] = {
        File("Modem Stat", "/data/vendor/modem_stat/debug.txt"),
        Script("Modem SSR history",
               "for f in $(ls /data/vendor/ssrlog/ssr_log*); do echo $f ; cat $f ; done", 2s),
};

}  // namespace

void Dumpstate::dumpTouch(int fd) {
    // The path differs from board to board. An unset one fails in the report like any other.
    protect("touch", [&] {
        ::android::os::dumpstate::DumpFileToFd(
                fd, "Touch Stats", ::android::base::GetProperty("ro.vendor.touch.dump_path", ""));
    });
}

void Dumpstate::dumpInterrupts(int fd) {
    dumpEntries(fd, kInterrupts);
}

void Dumpstate::dumpSleepStats(int fd) {
    // Without debugfs there is nothing to tell, not even a failure. The directory stays open for
    // the command, so that what was found is what is listed.
    struct Close {
        void operator()(DIR* directory) const { closedir(directory); }
    };
    const std::unique_ptr<DIR, Close> directory(opendir(kSleepStatsDirectory));
    if (directory == nullptr) return;
    dumpEntries(fd, kSleepStats);
}

void Dumpstate::dumpBldrLog(int fd) {
    dumpEntries(fd, kBootloader);
}

void Dumpstate::dumpModem(int fd) {
    dumpEntries(fd, kModem);
}

}  // namespace aidl::android::hardware::dumpstate
