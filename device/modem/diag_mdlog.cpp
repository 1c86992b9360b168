// The modem's diagnostic logger of the simulated wearable. While it runs it holds a log open; what
// it has gathered is in the file only once it has stopped, so a copy made too early shows.
//
//   vendor.sys.modem.diag.mdlog              "true" starts it, "false" stops it; at boot it runs if
//   persist.vendor.sys.modem.diag.mdlog      is true
//   vendor.sys.modem.diag.mdlog_on           what it reports of itself
//   vendor.sim.diag_mdlog                    "hang": it ignores to be stopped; "off": it never runs

#include <android-base/properties.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>

namespace {

using android::base::GetBoolProperty;
using android::base::GetProperty;
using android::base::SetProperty;
using android::base::WaitForProperty;

constexpr char kControl[] = "vendor.sys.modem.diag.mdlog";
constexpr char kRunning[] = "vendor.sys.modem.diag.mdlog_on";
constexpr char kSwitch[] = "persist.vendor.sys.modem.diag.mdlog";
constexpr char kSimulation[] = "vendor.sim.diag_mdlog";
constexpr std::chrono::milliseconds kTimeToStop{300};

bool Simulates(const char* word) {
    return GetProperty(kSimulation, "") == word;
}

// Numbers go on where the logs of the device's earlier days end.
void WriteLog(int number) {
    char path[80];
    std::snprintf(path, sizeof path, "/data/vendor/radio/diag_logs/logs/diag_log_%04d.qmdl",
                  number);
    std::ofstream log(path, std::ios::binary);
    for (uint32_t record = 0; record < 400; ++record) {
        log << '\x10' << '\x00' << "lte_ml1_update " << record * 40U + static_cast<uint32_t>(number)
            << '\x7e';
    }
}

void RunUntilStopped(int number) {
    SetProperty(kRunning, "true");
    do {
        WaitForProperty(kControl, "false");
        if (Simulates("hang")) WaitForProperty(kControl, "true");
    } while (Simulates("hang"));
    std::this_thread::sleep_for(kTimeToStop);
    WriteLog(number);
    SetProperty(kRunning, "false");
}

}  // namespace

int main() {
    constexpr int kFirstLog = 101;
    bool start = GetBoolProperty(kSwitch, false) && !Simulates("off");
    SetProperty(kRunning, start ? "true" : "false");
    for (int number = kFirstLog;; ++number) {
        if (!start) WaitForProperty(kControl, "true");
        RunUntilStopped(number);
        start = false;
    }
}
