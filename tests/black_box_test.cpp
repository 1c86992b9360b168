// The sensor black box against a hub that is written here, byte by byte, and the section around it.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <fstream>
#include <future>
#include <numeric>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "expected_report.h"
#include "hub_daemon.h"
#include "hub_messages.h"
#include "no_threads.h"
#include "own_time.h"
#include "processes.h"
#include "recording_platform.h"
#include "sensor_black_box_client.h"
#include "sensor_hub.h"

namespace fbs = chre::fbs;
using namespace std::chrono_literals;

// The section's pause.
extern "C" int nanosleep(const timespec* time, timespec* left) {
    if (time->tv_sec == 0) return clock_nanosleep(CLOCK_MONOTONIC, 0, time, left);
    const bool whole = time->tv_nsec == 0;
    ThePlatform().requests.push_back("sleep\t" + std::to_string(time->tv_sec) +
                                     (whole ? "" : ".5"));
    if (!whole) return 0;
    *left = {1, 500'000'000};  // as when a signal came
    errno = EINTR;
    return -1;
}

// How long the action takes in a time of its own.
template <typename Action>
static std::chrono::seconds SecondsOf(Action action) {
    const OwnTime time;
    action();
    return std::chrono::floor<std::chrono::seconds>(time.passed);
}

namespace tev::dumpstate {
namespace {

using Strings = std::vector<std::string>;

// What is written into a memory file.
class Report {
  public:
    ~Report() { close(fd_); }
    int fd() const { return fd_; }
    std::string Text() const { return ReadFd(fd_); }

  private:
    const int fd_ = memfd_create("report", MFD_CLOEXEC);
};

// A client that is not connected, so that every send fails.
class BlackBoxTest : public testing::Test {
  protected:
    BlackBoxTest() { Restart(); }

    void Restart() {
        ThePlatform() = {};
        client_ = new SensorBlackBoxClient(kBlackBox);
    }

    void Feed(const Bytes& datagram) {
        client_->onMessageReceived(datagram.data(), static_cast<uint32_t>(datagram.size()));
    }

    // What has been logged since the last call.
    Strings NewLogs() {
        Strings logs = LogsOf("tev-dumpstate");
        for (std::string& record : logs) record.erase(2, 14);
        ThePlatform().logs.clear();
        return logs;
    }

    std::string Printed(std::chrono::seconds timeout = 0s) {
        const Report report;
        waited_ += SecondsOf([&] { client_->PrintToFd(report.fd(), timeout); });
        const std::string text = report.Text();
        constexpr std::string_view kHeading = "------ Sensor Black Box ------\n";
        EXPECT_TRUE(text.starts_with(kHeading)) << text;
        return text.substr(std::min(text.size(), kHeading.size()));
    }

    // The report of a sensor's records, which came in pieces of any size, in any order and in part
    // again with other bytes.
    std::string PrintedRecords(uint8_t sensor, uint64_t newest, const Bytes& records) {
        Restart();
        const auto size = static_cast<uint32_t>(records.size());
        Feed(SnapshotReply(0, 0, {{sensor, newest}}));
        Feed(Message(5, Piece(sensor, 0, size, 0, 0, {0})));
        std::mt19937 random(2);
        std::vector<std::pair<uint32_t, uint32_t>> pieces;  // from, to
        for (uint32_t at = 0; at < size; at = pieces.back().second) {
            const auto length = static_cast<uint32_t>(random() % (size > 4096 ? 9000 : 150) + 1);
            pieces.emplace_back(at, std::min(size, at + length));
        }
        std::ranges::shuffle(pieces, random);
        for (const auto& [from, to] : pieces) {
            const Bytes piece(records.begin() + from, records.begin() + to);
            Feed(Message(5, Piece(sensor, 0, size, from, to - from, piece)));
            const auto again = from + static_cast<uint32_t>(random() % (to - from));
            Feed(Message(5, Piece(sensor, 0, size, again, to - again, Bytes(to - again, 0xAA))));
        }
        return Printed();
    }

    android::sp<SensorBlackBoxClient> client_;
    std::chrono::seconds waited_{0};  // for what was Printed()
};

TEST_F(BlackBoxTest, EveryMessageIsCheckedAndLoggedToTheLetter) {
    const std::pair<Bytes, Strings> envelopes[] = {
            {{1, 2, 3}, {"6 Failed to decode message from CHRE"}},
            {List({}), {"6 Sensor black box not found"}},
            {List({{kBlackBox ^ 1, true}}), {"6 Sensor black box not found"}},
            {List({{kBlackBox, false}, {kBlackBox, true}}), {"6 Sensor black box not enabled"}},
            {List({{1, false}, {kBlackBox, true}}),
             {"4 Requesting black box sensor count",
              "6 Failed to send kSensorCountRequest message to sensor black box"}},
            {Message(9, {}, 0x1234), {}},
            {Message(9, {}, kEndpoint, kBlackBox + 1), {}},
            {Message(9, {}, 0xFFFF), {"5 Ignoring unsupported message type 9 from black box"}},
    };
    for (const auto& [datagram, logs] : envelopes) {
        Feed(datagram);
        EXPECT_EQ(NewLogs(), logs);
    }
    std::ifstream table(TEST_DATA "/black_box_messages.tsv");
    int rows = 0;
    for (std::string row; std::getline(table, row);) {
        if (row.starts_with('#')) continue;
        SCOPED_TRACE(row);
        Strings cells;
        std::istringstream line(row);
        for (std::string cell; std::getline(line, cell, '\t');) cells.push_back(cell);
        cells.resize(std::max<size_t>(cells.size(), 2));
        Feed(Message(static_cast<uint32_t>(std::stoul(cells[0])), FromHex(cells[1])));
        EXPECT_EQ(NewLogs(), Strings(cells.begin() + 2, cells.end()));
        ++rows;
    }
    EXPECT_GT(rows, 35);
    // Stopped, so nobody is waited for. The order of the sensors is the map's own.
    const std::string text = Printed(3600s);
    EXPECT_EQ(waited_, 0s);
    for (const char* block : {"*** Sensor 1 (Accelerometer) ***\n"
                              "Time: 980000, Value: (0.000000, -0.000000, 0.000000)\n"
                              "Time: 1000000, Value: (2.000000, 1.000000, -2.500000)\n",
                              "Skipping Sensor 8 (Magnetometer): Incomplete buffer\n",
                              "Skipping Sensor 10 (Barometer): No timestamp info\n"}) {
        EXPECT_NE(text.find(block), std::string::npos) << text;
    }
    EXPECT_EQ(std::ranges::count(text, '\n'), 5) << text;
}

TEST_F(BlackBoxTest, ValuesAndTimesPrintLikePrintf) {
    std::mt19937 random(1);
    std::vector<uint32_t> values = {0x00000000, 0x80000000, 0x7F800000, 0xFF800000, 0x7FC00000,
                                    0xFFC00000, 0x7F800001, 0x00000001, 0x807FFFFF, 0x7F7FFFFF,
                                    0xFF7FFFFF, 0x35000000, 0x36000000, 0x5F000000, 0x5E7FFFFF,
                                    0x4B7FFFFF, 0x3EFFFFFF, 0xB4800000};
    while (values.size() < 12000) {
        values.push_back(static_cast<uint32_t>(random()));
        values.push_back(0x30000000 + values.back() % 0x1B000000);  // where a millionth counts
    }
    for (const auto& [type, count, heading] :
         std::initializer_list<std::tuple<uint8_t, size_t, const char*>>{
                 {1, 3, "*** Sensor 1 (Accelerometer) ***\n"},
                 {6, 3, "*** Sensor 6 (Gyroscope) ***\n"},
                 {8, 3, "*** Sensor 8 (Magnetometer) ***\n"},
                 {10, 1, "*** Sensor 10 (Barometer) ***\n"},
                 {200, 1, "*** Sensor 200 (TiltToWake) ***\n"},
                 {214, 1, "*** Sensor 214 (RaiseToTalk) ***\n"}}) {
        std::vector<uint32_t> deltas(values.size() / count);
        std::ranges::generate(deltas,
                              [&] { return static_cast<uint32_t>(random()) >> random() % 32; });
        constexpr uint64_t kNewest = 123456789;  // less than the deltas: times wrap
        uint64_t time = kNewest - 1000 * std::accumulate(deltas.begin(), deltas.end(), uint64_t{0});
        Bytes records;
        std::string expected = heading;
        auto value = values.begin();
        for (const uint32_t delta : deltas) {
            time += uint64_t{delta} * 1000;
            records = std::move(records) + Le(delta);
            expected += "Time: " + std::to_string(time) + ", Value: " + (count > 1 ? "(" : "");
            for (size_t i = 0; i < count; ++i, ++value) {  // to_string() is %f
                records = std::move(records) + Le(*value);
                expected += (i > 0 ? ", " : "") + std::to_string(std::bit_cast<float>(*value));
            }
            expected += count > 1 ? ")\n" : "\n";
        }
        const std::string printed = PrintedRecords(type, kNewest, records);
        EXPECT_TRUE(printed == expected)
                << std::string(std::ranges::mismatch(printed, expected).in1, printed.end())
                           .substr(0, 99);
        EXPECT_EQ(PrintedRecords(type, kNewest, {}), heading);
    }
}

TEST_F(BlackBoxTest, WearIsReportedInPeriods) {
    const auto wear = [this](const std::vector<std::pair<uint32_t, float>>& records) {
        Bytes bytes;
        for (const auto& [millis, value] : records) {
            bytes = bytes + Le(millis) + Le(std::bit_cast<uint32_t>(value));
        }
        constexpr std::string_view kHeading = "*** Sensor 196 (LowLatencyOffBody) ***\n";
        const std::string text = PrintedRecords(196, 200000000000, bytes);
        EXPECT_TRUE(text.starts_with(kHeading)) << text;
        return text.substr(kHeading.size());
    };
    EXPECT_EQ(wear({{0, 0}, {1000, 1}, {2000, 1}, {3000, 0}, {7, 0}}),
              "Time: 194993000000, Time On Wrist: 5.000000s\n"
              "Total Time On Wrist: 5.000000 seconds\n");
    EXPECT_EQ(wear({{0, 1}, {1000, 1}}), "");
    EXPECT_EQ(wear({{0, 1}, {0, 0}}), "Time: 200000000000, Time On Wrist: 0.000000s\n");
    EXPECT_EQ(wear({{0, 0}, {5, 1.0000001F}, {5, 0.99999994F}, {5, -1}, {5, NAN}}), "");
    // In double precision: 16777.217000, 563.565000, 100000.007000 and 117340.789000.
    EXPECT_EQ(wear({{9, 1}, {16777217, 0}, {1, 1}, {563565, NAN}, {1, 1}, {100000007, 2}, {4, 1}}),
              "Time: 18446626932914551616, Time On Wrist: 16777.216797s\n"
              "Time: 18446643710132551616, Time On Wrist: 563.564941s\n"
              "Time: 18446644273698551616, Time On Wrist: 100000.007812s\n"
              "Total Time On Wrist: 117340.789062 seconds\n");
}

TEST_F(BlackBoxTest, TimeOutEndsTheWaitUnlessAsManyBuffersAsSensorsAreComplete) {
    EXPECT_EQ(Printed(std::chrono::seconds::min()) + Printed(0s) + Printed(7s), "");
    Feed(Message(7, Le(1)));
    for (const uint32_t offset : {0U, 8U}) {
        Feed(Message(5, Piece(6, 0, 16, offset, 8, Bytes(8))));
        Feed(Message(5, Piece(8, 0, 16, offset, 8, Bytes(8))));
    }
    const std::string text = Printed(30s);
    EXPECT_EQ(waited_, 37s) << text;
}

TEST_F(BlackBoxTest, MemoryIsBounded) {
    Feed(Message(5, Piece(1, 0, 25U << 20, 0, 1, {0})));
    Feed(Message(5, Piece(10, 0, 7U << 20, 0, 1, {0})));
    EXPECT_EQ(NewLogs(), Strings());
    Feed(Message(5, Piece(200, 0, 8, 0, 1, {0})));
    EXPECT_EQ(NewLogs(), Strings({"6 Refusing buffer for sensor 200 (TiltToWake): 8 bytes make "
                                  "33554440, more than the 33554432 for all sensors"}));
    Feed(Message(5, Piece(196, 0, 0, 0, 1, {0})));
    EXPECT_EQ(NewLogs().size(), 1U);  // nothing to hold, and out of bound
}

TEST_F(BlackBoxTest, BufferThatNoMemoryIsLeftForIsRefused) {
    if (kSanitized) GTEST_SKIP() << "the sanitizer needs all the memory there is";
    rlimit limit{};
    getrlimit(RLIMIT_AS, &limit);
    const rlim_t most = std::exchange(limit.rlim_cur, rlim_t{8} << 20);
    setrlimit(RLIMIT_AS, &limit);
    Feed(Message(5, Piece(1, 0, 32U << 20, 0, 1, {0})));
    limit.rlim_cur = most;
    setrlimit(RLIMIT_AS, &limit);
    EXPECT_EQ(NewLogs(), Strings({"6 Refusing buffer for sensor 1 (Accelerometer): no memory for "
                                  "33554432 bytes"}));
    EXPECT_EQ(Printed(), "");
}

TEST_F(BlackBoxTest, ASlowReaderMissesNothing) {
    const std::string whole =
            "------ Sensor Black Box ------\n" + PrintedRecords(1, 1, Bytes(3 << 20));
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    auto slow = std::async(std::launch::async, ReadFd, ends[0]);
    client_->PrintToFd(ends[1], 0s);
    close(ends[1]);
    EXPECT_TRUE(slow.get() == whole);
    close(ends[0]);

    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    ASSERT_EQ(write(ends[1], whole.data(), 65536), 65536);
    {
        OwnTime time;
        time.interruptions = 1;
        time.slow_reader = ends[0];
        client_->PrintToFd(ends[1], 0s);
        EXPECT_GT(time.passed, 500s);
    }
    EXPECT_FALSE(IsNull(ends[1]));
    for (const int end : ends) close(end);
}

TEST_F(BlackBoxTest, AReaderThatHasStoppedOrGoneIsGivenUp) {
    PrintedRecords(1, 1, Bytes(3 << 20));
    std::array<int, 2> stopped{};
    std::array<int, 2> gone{};
    ASSERT_EQ(pipe2(stopped.data(), O_CLOEXEC), 0);
    ASSERT_EQ(pipe2(gone.data(), O_CLOEXEC), 0);
    close(gone[0]);
    const auto [master, terminal] = OpenTerminal();
    std::signal(SIGPIPE, SIG_IGN);  // the service is not ended by it either
    const struct {
        int fd;
        const char* why;
        std::chrono::seconds patience = 30s;
        bool given_up = true;
    } readers[] = {{stopped[1], "Connection timed out"},
                   {terminal, "Connection timed out"},
                   {gone[1], "Broken pipe", 0s},
                   {open("/dev/full", O_WRONLY | O_CLOEXEC), "No space left on device", 0s, false},
                   {-1, "Bad file descriptor", 0s, false}};
    for (const auto& reader : readers) {
        const WithinAMinute end("a report that nobody reads");
        ThePlatform().logs.clear();
        {
            const OwnTime time;
            client_->PrintToFd(reader.fd, 0s);
            EXPECT_EQ(time.waited, reader.patience);
        }
        EXPECT_EQ(NewLogs(), Strings{"5 The report is cut here: " + std::string(reader.why)});
        EXPECT_EQ(IsNull(reader.fd), reader.given_up);
        close(reader.fd);
    }
    std::signal(SIGPIPE, SIG_DFL);
    close(stopped[0]);
    close(master);
}

class Hub : public HubDaemon {
  public:
    Hub() : HubDaemon("chre") {}

    // The client's next message as text, checked for what all have in common.
    std::string Receive() const {
        const std::string received = HubDaemon::Receive();
        const Bytes datagram(received.begin(), received.end());
        if (datagram.empty()) return "hung up";
        flatbuffers::Verifier verifier(datagram.data(), datagram.size());
        if (!verifier.VerifyBuffer<fbs::MessageContainer>(nullptr)) return "invalid";
        const auto* const container = flatbuffers::GetRoot<fbs::MessageContainer>(datagram.data());
        if (container->host_addr()->client_id() != 0) return "wrong address";
        if (container->message_type() == fbs::ChreMessage::NanoappListRequest) return "list";
        const auto* const message = container->message_as_NanoappMessage();
        if (message == nullptr) return "unexpected";
        if (message->app_id() != kBlackBox || message->host_endpoint() != kEndpoint ||
            message->first_word() != ~0U || message->second_word() != ~0U ||
            message->first_flag() || message->second_flag() || message->third_word() != 0) {
            return "wrong envelope";
        }
        std::string text = std::to_string(message->message_type()) + ":";
        for (const uint8_t byte : *message->message()) text += " " + std::to_string(byte);
        return text;
    }

    // What every connection begins with.
    void AcceptListAndCount(uint32_t sensors) {
        Accept();
        EXPECT_EQ(Receive(), "list");
        Send(List({{kBlackBox, true}}));
        EXPECT_EQ(Receive(), "6:");
        Send(Message(7, Le(sensors)));
    }
};

void Finish(std::future<void>& printing) {
    const WithinAMinute end("the black box's reader to be woken");
    printing.get();
}

TEST(BlackBoxExchange, FetchesFragmentByFragmentAndWakesTheReader) {
    for (const bool with_id : {false, true}) {
        ThePlatform() = {};
        if (with_id) ThePlatform().properties["dumpstate.last_id"] = "-2";
        Hub hub;
        const auto client = SensorBlackBoxClient::start(kBlackBox, "chre");
        const Report report;
        auto printing = std::async(std::launch::async, [&] {
            client->PrintToFd(report.fd(), std::chrono::seconds::max());
        });
        hub.AcceptListAndCount(with_id ? 3 : 2);
        EXPECT_EQ(hub.Receive(), with_id ? "1: 254 255 255 255" : "1:");
        hub.Send(SnapshotReply(3, 77, {{10, 50000}, {200, 60000}}));
        EXPECT_EQ(hub.Receive(), "3: 0 0 0 0 1 0 0 0");
        hub.Send(Message(5, Piece(10, 77, 8, 4, 4, Le(0x3F800000))));
        hub.Send(Message(4, {}));
        EXPECT_EQ(hub.Receive(), "3: 1 0 0 0 1 0 0 0");
        hub.Send(Message(5, Piece(10, 77, 8, 0, 4, Le(7))));
        // The daemon starts anew: listed and counted again, but it is the same snapshot.
        hub.HangUp();
        hub.AcceptListAndCount(1);
        hub.Send(Message(4, {}));
        EXPECT_EQ(hub.Receive(), "3: 2 0 0 0 1 0 0 0");
        hub.Send(Message(4, {}));
        EXPECT_EQ(printing.wait_for(0s), std::future_status::timeout);
        // The last missing byte of the last sensor, with one too many behind it.
        hub.Send(Message(5, Piece(200, 77, 8, 1, 7, Le(0, 3) + Le(0x40000000))));
        hub.Send(Message(5, Piece(200, 77, 8, 0, 2, {3, 0})));
        if (with_id) hub.Send(Message(5, Piece(6, 77, 0, 0, 1, {0})));  // nothing is missing of it
        Finish(printing);
        const std::string text = report.Text();
        for (const char* block :
             {"*** Sensor 10 (Barometer) ***\nTime: 50000, Value: 1.000000\n",
              "*** Sensor 200 (TiltToWake) ***\nTime: 60000, Value: 2.000000\n"}) {
            EXPECT_NE(text.find(block), std::string::npos) << text;
        }
        client->disconnect();
    }
}

TEST(BlackBoxExchange, AStoppedDumpWakesTheReaderAndALateOneIsNotWaitedFor) {
    for (const auto& [no_id, stop] :
         {std::pair{"-1", Message(5, Piece(1, 9, 16, 0, 1, {0}))}, {"2 or so", Message(5, {})}}) {
        ThePlatform() = {};
        ThePlatform().properties["dumpstate.last_id"] = no_id;
        Hub hub;
        const auto client = SensorBlackBoxClient::start(kBlackBox, "chre");
        const Report report;
        const auto print = [&] { client->PrintToFd(report.fd(), 3600s); };
        auto printing = std::async(std::launch::async, print);
        hub.AcceptListAndCount(1);
        EXPECT_EQ(hub.Receive(), "1:");
        hub.Send(SnapshotReply(2, 8, {}));
        EXPECT_EQ(hub.Receive(), "3: 0 0 0 0 1 0 0 0");
        hub.Send(stop);
        Finish(printing);
        {
            const WithinAMinute end("a dump that was stopped before");
            print();
        }
        hub.Send(Message(4, {}));
        hub.Send(Message(99, {}));
        EXPECT_TRUE(
                WaitForLog("5 tev-dumpstate Ignoring unsupported message type 99 from black box"));
        client->disconnect();
        EXPECT_EQ(hub.Receive(), "hung up");
    }
}

TEST(BlackBoxExchange, EndsFromEveryState) {
    const ProcessCensus census;
    ThePlatform() = {};
    EXPECT_EQ(SensorBlackBoxClient::start(kBlackBox, std::string(64, 'x').c_str()).get(), nullptr);
    EXPECT_TRUE(WaitForLog("6 tev-dumpstate Couldn't connect to CHRE socket"));
    SensorBlackBoxClient::start(kBlackBox, "chre")->disconnect();
    for (const bool flooding : {false, true}) {
        ThePlatform() = {};
        Hub hub;
        std::future<void> flood;
        const auto client = SensorBlackBoxClient::start(kBlackBox, "chre");
        hub.AcceptListAndCount(7);
        // A snapshot under way, from a hub that sends for ever and reads nothing.
        hub.Send(SnapshotReply(~0U, 1, {}));
        if (flooding) {
            flood = std::async(std::launch::async, [&] {
                while (hub.Send(Message(4, {})) &&
                       hub.Send(Message(5, Piece(1, 1, 1 << 20, 0, 9, Bytes(9))))) {
                }
            });
            EXPECT_TRUE(WaitForLog("3 tev-dumpstate Requesting fragment 500"));
        }
        const Report report;
        client->PrintToFd(report.fd(), 0s);
        client->disconnect();
    }
    EXPECT_EQ(census.Newcomers(), "");
}

// Of a list, what stands between its lines that begin like these, and these.
Strings Between(const Strings& all, const std::string& first, const std::string& last) {
    const auto find = [&](const std::string& beginning) {
        return std::ranges::find_if(
                all, [&](const std::string& line) { return line.starts_with(beginning); });
    };
    return {find(first), find(last) + 1};
}

TEST(SensorHub, WritesItsSectionInOrder) {
    ThePlatform() = {};
    ThePlatform().echo_titles = true;
    ThePlatform().on_log = [](const std::string& record) {
        if (record.ends_with("RX thread to exit")) ThePlatform().requests.emplace_back("hang up");
    };
    const Report report;
    const ProcessCensus census;
    {
        Hub hub;
        auto answers = std::async(std::launch::async, [&] {
            hub.AcceptListAndCount(1);
            EXPECT_EQ(hub.Receive(), "1:");
            hub.Send(SnapshotReply(1, 1, {{214, 5000}}));
            hub.Send(Message(5, Piece(214, 1, 8, 0, 8, Le(1) + Le(0xBF000000))));
            EXPECT_EQ(hub.Receive(), "3: 0 0 0 0 1 0 0 0");
            EXPECT_EQ(hub.Receive(), "hung up");
        });
        dump(report.fd());
        answers.get();
    }
    EXPECT_EQ(census.Newcomers(), "");
    std::string text;
    int run = 0;
    for (const std::string& title :
         Between(ExpectedTitles(false, false), "FLUSH DLS", "USF registry dump")) {
        const std::string rule = std::string(55, '-') + "\n";
        if (title == "USF stat") {
            text += rule + "------------------- USF Stats (" + std::to_string(++run) +
                    "/2) -------------------\n" + rule + "\n";
        }
        text += "[" + title + "]\n";
    }
    const auto with = [&](const std::string& black_box) {
        return std::string(text).insert(text.find('\n') + 1, black_box);
    };
    EXPECT_EQ(report.Text(), with("------ Sensor Black Box ------\n*** Sensor 214 (RaiseToTalk) "
                                  "***\nTime: 5000, Value: -0.500000\n"));
    Strings expected = Between(ExpectedRequests(false, false), "command\tFLUSH DLS",
                               "command\tUSF registry dump");
    expected.insert(std::ranges::find(expected, "sleep\t2") + 1, "sleep\t1.5");
    expected.emplace_back("hang up");
    EXPECT_EQ(ThePlatform().requests, expected);
    EXPECT_STREQ(getMcuLogDataPath(), "/data/vendor/log/mcu");

    // Without a hub, and without a thread that waits for one.
    for (const auto& [wait, black_box] :
         {std::pair{5s, "------ Sensor Black Box ------\n"},
          {0s,
           "*** no sensor black box: the connection to the context hub (socket \"chre\") could "
           "not be begun, see the system log\n"}}) {
        ThePlatform().requests.clear();
        const Report without;
        std::optional<NoThreads> none;
        if (wait == 0s) {
            none.emplace();
            expected.pop_back();
        }
        EXPECT_EQ(SecondsOf([&] { dump(without.fd()); }), wait);
        EXPECT_EQ(without.Text(), with(black_box));
        EXPECT_EQ(ThePlatform().requests, expected);
    }
}

}  // namespace
}  // namespace tev::dumpstate
