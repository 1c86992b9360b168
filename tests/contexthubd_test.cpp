// The wearable's context hub as the service's own client meets it.

#include <cutils/sockets.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "hub_messages.h"
#include "processes.h"
#include "recording_platform.h"
#include "sensor_black_box_client.h"
#include "sensor_data.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// How far the thread's clock has gone ahead. Those of the link's threads do, as they wait for
// nothing.
static thread_local time_t ahead = 0;

extern "C" int clock_gettime(clockid_t clock, timespec* time) {
    static const auto get =
            reinterpret_cast<decltype(&clock_gettime)>(dlsym(RTLD_NEXT, "clock_gettime"));
    const int result = get(clock, time);
    time->tv_sec += ahead;
    return result;
}

extern "C" int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                      clockid_t clock, const timespec* deadline) {
    static const auto wait = reinterpret_cast<decltype(&pthread_cond_clockwait)>(
            dlsym(RTLD_NEXT, "pthread_cond_clockwait"));
    if (gettid() == getpid()) return wait(condition, mutex, clock, deadline);
    ahead += 5;  // more than the longest back-off
    return ETIMEDOUT;
}

namespace {

constexpr uint64_t kSecond = 1'000'000'000;
const fs::path kSocket = "/dev/socket/hub";
const std::string kLog = "/tmp/hub.log";

// Of how many sensors the data came whole, and a line for each record, apart from its time.
struct Snapshot {
    int whole = 0;
    std::vector<std::string> values;
    std::vector<uint64_t> nanos;
};

class Client {
  public:
    ~Client() { client_->disconnect(); }

    // Everything that has come by then.
    Snapshot After(std::chrono::seconds patience) const {
        const int report = memfd_create("report", MFD_CLOEXEC);
        client_->PrintToFd(report, patience);
        std::istringstream lines(ReadFile("/proc/self/fd/" + std::to_string(report)));
        close(report);
        Snapshot snapshot;
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with("***")) ++snapshot.whole;
            if (!line.starts_with("Time: ")) continue;
            snapshot.values.push_back(line.substr(line.find(',')));
            snapshot.nanos.push_back(std::stoull(line.substr(6)));
        }
        return snapshot;
    }
    int Whole() const { return After(60s).whole; }

  private:
    const android::sp<tev::dumpstate::SensorBlackBoxClient> client_ =
            tev::dumpstate::SensorBlackBoxClient::start(kBlackBox, "hub");
};

class ContexthubdTest : public testing::Test {
  protected:
    ~ContexthubdTest() override { End(SIGKILL); }

    void Start(const std::string& options) {
        End(SIGTERM);
        ThePlatform() = {};
        fs::remove(kLog);
        std::istringstream words("contexthubd --socket /dev/socket/hub " + options);
        daemon_ = Spawn({std::istream_iterator<std::string>(words), {}}, kLog);
        AwaitWord("listening at");
    }
    int End(int signal) {
        if (daemon_ <= 0) return -1;
        kill(daemon_, signal);
        siginfo_t ended{};
        Await([&] {
            return waitid(P_PID, static_cast<id_t>(daemon_), &ended, WEXITED | WNOHANG | WNOWAIT) !=
                           0 ||
                   ended.si_pid != 0;
        });
        EXPECT_EQ(ended.si_pid, daemon_) << "it did not end of signal " << signal;
        return EndChild(daemon_, SIGKILL);
    }

    // What the daemon and its clients said so far.
    static std::string Said() {
        std::string said = ReadFile(kLog);
        for (const char* tag : {"tev-dumpstate", "CHRE"}) {
            for (const std::string& record : LogsOf(tag)) said += record + "\n";
        }
        return said;
    }
    static void AwaitWord(const std::string& word) {
        Await([&] { return Said().find(word) != std::string::npos; });
        EXPECT_NE(Said().find(word), std::string::npos) << word << "\n" << Said();
    }

  private:
    pid_t daemon_ = -1;
};

TEST_F(ContexthubdTest, TellsEachClientWhatSevenSensorsSaw) {
    Start("--records 20000");
    const Client one, other;
    const Snapshot snapshot = one.After(60s);
    EXPECT_EQ(snapshot.whole, 7);
    EXPECT_EQ(snapshot.values.size(), 19'995U);  // on-wrist records make periods, of two each
    EXPECT_EQ(other.After(60s).values, snapshot.values);
    EXPECT_GT(std::ranges::min(snapshot.nanos), kSecond);
    EXPECT_LT(std::ranges::max(snapshot.nanos), NanosSinceBoot() - 2 * kSecond);
    AwaitWord("cookie = 1)");
    AwaitWord("cookie = 2)");
    // In any order, so that no sensor is whole long before the others.
    EXPECT_LT(Said().find("Fully received black box data for sensor 214"),
              Said().find("Fully received black box data for sensor 1 "));
}

TEST(SensorDataTest, WasRecordedSinceBoot) {
    const time_t before = ahead;
    for (const uint64_t uptime : {10U, 700U, 1'000'000U}) {
        ahead += static_cast<time_t>(uptime) - static_cast<time_t>(NanosSinceBoot() / kSecond);
        for (const uint32_t records : {25U, 100'000U}) {
            std::mt19937_64 random;
            for (const SensorBuffer& sensor : RecordSensors(random, records, {})) {
                const size_t record = sensor.type < 10 ? 16 : 8;
                uint64_t nanos = sensor.age_ns;
                for (size_t at = 0; at < sensor.bytes.size(); at += record) {
                    uint32_t delta = 0;
                    for (size_t i = 4; i-- > 0;) delta = delta << 8 | sensor.bytes[at + i];
                    nanos += delta * uint64_t{sensor.type == 196 ? 1'000'000U : 1000U};
                }
                EXPECT_LT(nanos, (uptime - 1) * kSecond) << int{sensor.type};
                EXPECT_GT(sensor.age_ns, 2 * kSecond) << int{sensor.type};
                EXPECT_GT(nanos - sensor.age_ns, kSecond / 50) << int{sensor.type};
            }
        }
    }
    ahead = before;
}

TEST_F(ContexthubdTest, MisbehavesAsTold) {
    // The fewest records make 14 pieces in 4 fragments; every third is of three of the sensors.
    const std::string until_the_end = " --hang-up-at fragment-done:4";
    const std::string gone = "4 CHRE Socket disconnected on remote end";
    const struct {
        std::string options;
        std::string word;  // what the hub or its client says of it
        int whole;         // sensors; for fewer than all, once the next word is said
        std::string last;
    } cases[] = {
            {"--absent", "Sensor black box not found", 0, ""},
            {"--disabled", "Sensor black box not enabled", 0, ""},
            {"--no-sensors", "Sensor black box has no sensors configured.", 0, ""},
            {"--lose 3" + until_the_end, "hanging up", 4, gone},
            {"--duplicate 3" + until_the_end, "Duplicated byte received", 7, ""},
            {"--wrong-cookie=3", "incorrect cookie value", 0, "Stopping black box dump"},
            {"--truncate 3" + until_the_end, "Incomplete black box data buffer", 4, gone},
            {"--delay 3", "Fully received", 7, ""},
            {"--hang-up-at received:2", "hanging up at received", 0, gone},
            {"--hang-up-at snapshot-reply", "hanging up at snapshot-reply", 0, gone},
            {"--hang-up-at fragment-done:2 --delay 1", "hanging up at fragment-done", 2, gone},
            {"--hang-at count-reply", "hanging at count-reply", 0, ""},
            {"--hang-at snapshot-request", "hanging at snapshot-request", 0, ""},
            {"--delay 600000", "client 1: connected", 0, ""},
    };
    for (const auto& [options, word, whole, last] : cases) {
        SCOPED_TRACE(options);
        Start(options + " --records 25");
        {
            const Client client;
            AwaitWord(word);
            AwaitWord(last);
            EXPECT_EQ(client.After(whole == 7 ? 60s : 0s).whole, whole) << Said();
        }
        AwaitWord("client 1: gone");  // whatever it was waiting for
    }
}

TEST_F(ContexthubdTest, IgnoresWhatItCannotReadAndWaitsForNobodyElse) {
    Start("");
    for (int client = 0; client < 2; ++client) {  // one that stays and one that is gone
        const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        ASSERT_GE(socket_local_client_connect(fd, "hub", ANDROID_SOCKET_NAMESPACE_RESERVED,
                                              SOCK_SEQPACKET),
                  0);
        for (const Bytes& datagram :
             {Datagram(chre::fbs::Request2T()), Message(6, {}, kEndpoint, kBlackBox + 1),
              Message(8, {}), Message(3, {0, 0, 0, 0}), Message(3, Le(0) + Le(1)),
              Message(1, {1, 2, 3}), Bytes(), Bytes(64, 0xFF), Bytes(40000, 0xFF), List({}),
              Datagram(chre::fbs::NanoappListRequestT()), Message(1, Le(42)),
              Message(3, Le(99) + Le(1))}) {
            EXPECT_EQ(send(fd, datagram.data(), datagram.size(), MSG_NOSIGNAL),
                      static_cast<ssize_t>(datagram.size()));
        }
        if (client == 1) close(fd);
        // It reads none of what it asks for.
        const Bytes first = Message(3, Le(0) + Le(1));
        int asked = 0;
        while (client == 0 && send(fd, first.data(), first.size(), MSG_DONTWAIT) > 0) {
            ASSERT_LT(++asked, 100'000) << "it sends to a client that doesn't read";
        }
    }
    EXPECT_EQ(Client().Whole(), 7);
    for (const char* line :
         {"of union number 2,", "to nanoapp 0x4E6F727665001026,", "no message of type 8;",
          "type 3 to the black box with 4 bytes, not 8;", "with 3 bytes, not 4;",
          "1 fragments from 0 on, of 0", "1 fragments from 99 on, of 17", "for id 42",
          "a datagram of 0 bytes", "a datagram of 64 bytes that holds no message; ignored",
          "a datagram of 40000 bytes, of which 32768 are the most"}) {
        AwaitWord(line);
    }
}

TEST_F(ContexthubdTest, NamesWhatIsWrongWithItsOptions) {
    const auto refused = [](const std::string& options, int status, const char* sentence) {
        const std::string line =
                "/usr/bin/timeout 60 contexthubd " + options + " >" + kLog + " 2>&1";
        EXPECT_EQ(WEXITSTATUS(std::system(line.c_str())), status) << options;
        EXPECT_NE(ReadFile(kLog).find(sentence), std::string::npos) << ReadFile(kLog);
    };
    refused("--socket /none/chre", 1, "cannot listen at /none/chre: No such file or directory");
    refused("--records 3", 2, "--records: '3' is no number from 25 to 10000000");
    refused("--hang-at nowhere:2", 2, "'nowhere:2' is no MESSAGE[:N]");
    refused("--freeze 2", 2, "--freeze: '2' is no sensor's type, which are 1, 6, 8, 10, 196, 200");
    refused("--freeze-after 75", 2, "--freeze-after without --freeze TYPE");
    refused("--absent=yes", 2, "--absent takes no value");
    refused("--lose", 2, "--lose wants a value, N");
    const fs::path property = "/dev/__properties__/vendor.sim.contexthubd.args";
    std::ofstream(property) << " --records  40 --gone";
    refused("", 2, "there is no option --gone;");
    refused("--help", 0, "hang-at MESSAGE[:N]");
    std::ofstream(property) << "--absent";
    Start("");
    {
        const Client client;
        AwaitWord("Sensor black box not found");
    }
    fs::remove(property);
    End(SIGKILL);
    EXPECT_TRUE(fs::exists(kSocket));  // the next one replaces it
    Start("");
    EXPECT_EQ(Client().Whole(), 7);
    EXPECT_EQ(End(SIGTERM), 0);
    fs::remove(kLog);
}

}  // namespace
