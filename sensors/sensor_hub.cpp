#include "sensor_hub.h"

#include <DumpstateUtil.h>

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <thread>

#include "log.h"
#include "protect.h"
#include "report_writer.h"
#include "sensor_black_box_client.h"

namespace tev::dumpstate {
namespace {

using android::os::dumpstate::CommandOptions;
using android::os::dumpstate::RunCommandToFd;
using namespace std::chrono_literals;

constexpr uint64_t kBlackBoxNanoapp = 0x4E6F727665001025;
constexpr char kContextHubSocket[] = "chre";
constexpr std::chrono::seconds kBlackBoxWait{5};
constexpr std::chrono::seconds kUsfPause{2};
constexpr char kMcuLogDirectory[] = "/data/vendor/log/mcu";

struct RegisterDump {
    const char* title;
    const char* sensor;
};

constexpr RegisterDump kRegisterDumps[] = {
        {"Register dump for IMU", "1"},  {"Register dump for ALS", "9"},
        {"Register dump for MAG", "6"},  {"Register dump for BARO", "4"},
        {"Register dump for AFE", "37"},
};

// Without a time-out, the platform's own.
void runCommand(int fd, const char* title, std::initializer_list<const char*> argv,
                std::optional<std::chrono::seconds> timeout = {}) {
    protect(kLogTag, title, [&] {
        const auto options = timeout ? CommandOptions::WithTimeout(timeout->count()).Build()
                                     : CommandOptions::DEFAULT;
        RunCommandToFd(fd, title, {argv.begin(), argv.end()}, options);
    });
}

// A black box client for as long as the section lasts. Its end is the connection's, and with that
// the client's, here and on this thread, whatever the exchange has come to.
class BlackBox {
  public:
    BlackBox() {
        protect(kLogTag, kName, [this] {
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
        protect(kLogTag, kName, [&] { client_->PrintToFd(fd, kBlackBoxWait); });
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
    runCommand(fd, "USF stat", {"/vendor/bin/usf_stats", "get", "-a"}, 3s);
}

}  // namespace

void dump(int fd) {
    runCommand(fd, "FLUSH DLS", {"/vendor/bin/tev", "DebugLogServiceFlush"}, 3s);
    const BlackBox black_box;
    black_box.dump(fd);
    writeUsfHeading(fd, 1);
    dumpUsfOnce(fd);
    std::this_thread::sleep_for(kUsfPause);
    writeUsfHeading(fd, 2);
    dumpUsfOnce(fd);
    runCommand(fd, "TEV Metrics", {"/vendor/bin/tev", "GetMetrics"}, 3s);
    for (const auto& [title, sensor] : kRegisterDumps) {
        runCommand(fd, title,
                   {"/vendor/bin/sensor_test", "--api", "usf", "register_dump", "-s", sensor}, 1s);
    }
    runCommand(fd, "USF registry dump", {"/vendor/bin/usf_reg_edit", "save", "-", "/"});
}

const char* getMcuLogDataPath() {
    return kMcuLogDirectory;
}

}  // namespace tev::dumpstate
