#include "sensor_hub.h"

#include <DumpstateUtil.h>

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <string>

#include "log.h"
#include "pause.h"
#include "report_writer.h"
#include "sensor_black_box_client.h"

namespace tev::dumpstate {
namespace {

using android::os::dumpstate::CommandOptions;
using android::os::dumpstate::RunCommandToFd;

constexpr uint64_t kBlackBoxNanoapp = 0x4E6F727665001025;
constexpr char kContextHubSocket[] = "chre";
constexpr std::chrono::seconds kBlackBoxWait{5};
constexpr std::chrono::seconds kUsfPause{2};
constexpr char kMcuLogDirectory[] = "/data/vendor/log/mcu";

struct RegisterDump {
    const char* name;
    int sensor;
};

constexpr RegisterDump kRegisterDumps[] = {
        {"IMU", 1}, {"ALS", 9}, {"MAG", 6}, {"BARO", 4}, {"AFE", 37},
};

void runCommand(int fd, const char* title, std::initializer_list<const char*> argv,
                const CommandOptions& options) {
    protect(title, [&] { RunCommandToFd(fd, title, {argv.begin(), argv.end()}, options); });
}

CommandOptions Seconds(int64_t timeout) {
    return CommandOptions::WithTimeout(timeout).Build();
}

// A black box client for as long as the section lasts. Its end is the connection's, and with that
// the client's, here and on this thread, whatever the exchange has come to.
class BlackBox {
  public:
    BlackBox() {
        protect(kName, [this] {
            client_ = SensorBlackBoxClient::start(kBlackBoxNanoapp, kContextHubSocket);
        });
    }
    ~BlackBox() {
        if (client_.get() != nullptr) client_->disconnect();
    }
    BlackBox(const BlackBox&) = delete;
    BlackBox& operator=(const BlackBox&) = delete;

    void dump(int fd) const {
        if (client_.get() == nullptr) {
            PrintToReport(fd,
                          "*** no sensor black box: the connection to the context hub "
                          "(socket \"%s\") could not be begun, see the system log\n",
                          kContextHubSocket);
            return;
        }
        protect(kName, [&] { client_->PrintToFd(fd, kBlackBoxWait); });
    }

  private:
    static constexpr char kName[] = "Sensor black box";

    android::sp<SensorBlackBoxClient> client_;
};

void writeUsfHeading(int fd, int run) {
    constexpr char kSeparator[] = "-------------------------------------------------------\n";
    PrintToReport(fd, "%s------------------- USF Stats (%d/2) -------------------\n%s\n",
                  kSeparator, run, kSeparator);
}

void dumpUsfOnce(int fd) {
    runCommand(fd, "USF stat", {"/vendor/bin/usf_stats", "get", "-a"}, Seconds(3));
}

void dumpRegisters(int fd, const RegisterDump& row) {
    protect(row.name, [&] {
        const std::string title = std::string("Register dump for ") + row.name;
        const std::string sensor = std::to_string(row.sensor);
        runCommand(
                fd, title.c_str(),
                {"/vendor/bin/sensor_test", "--api", "usf", "register_dump", "-s", sensor.c_str()},
                Seconds(1));
    });
}

}  // namespace

void dump(int fd) {
    runCommand(fd, "FLUSH DLS", {"/vendor/bin/tev", "DebugLogServiceFlush"}, Seconds(3));
    const BlackBox black_box;
    black_box.dump(fd);
    writeUsfHeading(fd, 1);
    dumpUsfOnce(fd);
    pauseFor(kUsfPause);
    writeUsfHeading(fd, 2);
    dumpUsfOnce(fd);
    runCommand(fd, "TEV Metrics", {"/vendor/bin/tev", "GetMetrics"}, Seconds(3));
    for (const RegisterDump& row : kRegisterDumps) dumpRegisters(fd, row);
    runCommand(fd, "USF registry dump", {"/vendor/bin/usf_reg_edit", "save", "-", "/"},
               CommandOptions::DEFAULT);
}

const char* getMcuLogDataPath() {
    return kMcuLogDirectory;
}

}  // namespace tev::dumpstate
