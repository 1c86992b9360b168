#include <unistd.h>

#include <span>

#include "debug_record.h"
#include "dumpstate.h"
#include "log_copy.h"
#include "section.h"

namespace aidl::android::hardware::dumpstate {
namespace {

using namespace std::chrono_literals;

constexpr char kBluetoothDirectory[] = "/data/vendor/log/dumpstate/log/bluetooth";
constexpr char kRamoopsDirectory[] = "/data/vendor/log/dumpstate/log/ramoops";
constexpr int kFilesOfASeries = 10;

constexpr Entry MakeDirectory(const char* path) {
    return Command("MKDIR DUMPSTATE BIN DIR", {"/vendor/bin/mkdir", "-p", path}, 2s);
}

constexpr Entry kMakeBluetooth[] = {MakeDirectory(kBluetoothDirectory)};
constexpr Entry kMakeRamoops[] = {MakeDirectory(kRamoopsDirectory)};

// One series of rotated logs.
struct Series {
    const char* announcement;  // in the system log, or null
    const char* directory;
    const char* prefix;
};

constexpr Series kBluetooth[] = {
        {"Dump Bluetooth VND snoop", "/data/vendor/bluetooth", "btsnoop_hci_vnd"},
        {"Dump Bluetooth MCU snoop", "/data/vendor/bluetooth", "btsnoop_hci_mcu"},
        {"Dump Bluetooth coredump", "/data/vendor/ssrdump/coredump", "coredump_bt_2"},
        {nullptr, "/data/vendor/ssrdump/coredump", "coredump_bt_chredump_"},
};

constexpr Series kRamoops[] = {
        {"Dump RAMOOPS console logs", "/data/vendor/ramoops_backup", "console-ramoops-"},
        {"Dump RAMOOPS dmesg logs", "/data/vendor/ramoops_backup", "dmesg-ramoops-"},
};

void copyAll(std::span<const Series> all, const char* destination) {
    for (const Series& series : all) {
        if (series.announcement != nullptr) debug(series.announcement);
        protect(series.prefix, [&] {
            dumpLogs(STDOUT_FILENO, series.directory, destination, kFilesOfASeries, series.prefix);
        });
    }
}

}  // namespace

void Dumpstate::dumpBluetooth(int fd) {
    debug("Dump Bluetooth...");
    dumpEntries(fd, kMakeBluetooth);
    if (!isUserBuild()) copyAll(kBluetooth, kBluetoothDirectory);
    debug("Dump Bluetooth complete");
}

void Dumpstate::dumpRamoops(int fd) {
    dumpEntries(fd, kMakeRamoops);
    if (!isUserBuild()) copyAll(kRamoops, kRamoopsDirectory);
}

}  // namespace aidl::android::hardware::dumpstate
