// The wearable's context hub as a client of its socket meets it: every byte is read and written
// here, through the schema alone.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "host_messages_generated.h"

namespace fbs = chre::fbs;
namespace fs = std::filesystem;

namespace {

using Bytes = std::vector<uint8_t>;

constexpr char kSocket[] = "/tmp/hub.socket";
constexpr char kLog[] = "/tmp/hub.log";
constexpr uint64_t kBlackBox = 0x4E6F727665001025;
constexpr uint16_t kEndpoint = 0x9023;

template <typename T>
T Get(const Bytes& bytes, size_t at) {
    uint64_t value = 0;
    for (size_t i = 0; i < sizeof(T); ++i) value |= uint64_t{bytes.at(at + i)} << (8 * i);
    return static_cast<T>(value);
}

float GetFloat(const Bytes& bytes, size_t at) {
    const auto word = Get<uint32_t>(bytes, at);
    float value = 0;
    std::memcpy(&value, &word, sizeof value);
    return value;
}

std::string ReadFile(const char* path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

int Connect() {
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    const timeval patience{60, 0};  // only a hub that is broken takes that long
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, kSocket);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return fd;
    close(fd);
    return -1;
}

class Daemon {
  public:
    explicit Daemon(const std::string& options) {
        const std::string line = "exec contexthubd --socket " + std::string(kSocket) + " " +
                                 options + " >" + kLog + " 2>&1";
        std::string shell = "sh";
        std::string flag = "-c";
        char* argv[] = {shell.data(), flag.data(), const_cast<char*>(line.c_str()), nullptr};
        EXPECT_EQ(posix_spawnp(&pid_, "sh", nullptr, nullptr, argv, environ), 0);
    }
    ~Daemon() { End(SIGKILL); }
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    // Whether it serves. It may have to make a million records first.
    bool Up() const {
        siginfo_t end{};
        while (waitid(P_PID, static_cast<id_t>(pid_), &end, WEXITED | WNOHANG | WNOWAIT) == 0 &&
               end.si_pid == 0) {
            const int fd = Connect();
            if (fd >= 0) return close(fd) == 0;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return false;
    }

    // The exit status, when no signal ended it. Signal 0 waits for an end of its own.
    int End(int signal) {
        if (pid_ == 0) return -1;
        int status = 0;
        if (signal != 0) kill(pid_, signal);
        waitpid(std::exchange(pid_, 0), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

  private:
    pid_t pid_ = 0;
};

// One client, and what came of its exchange.
class Client {
  public:
    explicit Client(int receive_buffer = 0) : fd_(Connect()) {
        if (receive_buffer != 0) {
            setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer);
        }
    }
    ~Client() { close(fd_); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    bool SendBytes(const void* data, size_t size) const {
        return send(fd_, data, size, MSG_NOSIGNAL) == static_cast<ssize_t>(size);
    }
    bool SendContainer(fbs::ChreMessageUnion message) const {
        fbs::MessageContainerT container;
        container.message = std::move(message);
        container.host_addr = std::make_unique<fbs::HostAddress>(uint16_t{7});
        flatbuffers::FlatBufferBuilder builder;
        builder.Finish(fbs::CreateMessageContainer(builder, &container));
        return SendBytes(builder.GetBufferPointer(), builder.GetSize());
    }
    bool Ask(uint32_t type, Bytes payload = {}, uint64_t app = kBlackBox) const {
        fbs::NanoappMessageT message;
        message.app_id = app;
        message.message_type = type;
        message.host_endpoint = kEndpoint;
        message.message = std::move(payload);
        fbs::ChreMessageUnion one;
        one.Set(std::move(message));
        return SendContainer(std::move(one));
    }
    bool AskList() const {
        fbs::ChreMessageUnion one;
        one.Set(fbs::NanoappListRequestT());
        return SendContainer(std::move(one));
    }
    bool AskFragment(uint32_t index) const {
        Bytes payload(8);
        for (size_t i = 0; i < 4; ++i) payload[i] = static_cast<uint8_t>(index >> (8 * i));
        payload[4] = 1;
        return Ask(3, payload);
    }

    // The next message; garbage is counted and skipped. Nothing at the connection's end.
    std::unique_ptr<fbs::MessageContainerT> Next() {
        for (Bytes bytes(65536);;) {
            const ssize_t size = recv(fd_, bytes.data(), bytes.size(), 0);
            if (size <= 0) return nullptr;
            EXPECT_LE(size, 32768);
            flatbuffers::Verifier verifier(bytes.data(), static_cast<size_t>(size));
            if (fbs::VerifyMessageContainerBuffer(verifier)) {
                auto container = fbs::UnPackMessageContainer(bytes.data());
                EXPECT_EQ(container->host_addr->client_id(), 7);
                return container;
            }
            ++garbage;
        }
    }
    // The payload of the next message, when it is of this type.
    std::optional<Bytes> Expect(uint32_t type) {
        const auto container = Next();
        const auto* message = container ? container->message.AsNanoappMessage() : nullptr;
        if (message == nullptr || message->message_type != type) return std::nullopt;
        EXPECT_EQ(message->app_id, kBlackBox);
        EXPECT_EQ(message->host_endpoint, kEndpoint);
        return message->message;
    }

    // Whether there is nothing to read, the connection's end included.
    bool HearsNothing() const {
        pollfd poll_fd{fd_, POLLIN, 0};
        return poll(&poll_fd, 1, 0) == 0;
    }

    // Each step is the word for where the exchange ended, "" when it can go on.
    std::string List() {
        const auto container = AskList() ? Next() : nullptr;
        const auto* list = container ? container->message.AsNanoappListResponse() : nullptr;
        if (list == nullptr) return "no list";
        EXPECT_GT(list->nanoapps.size(), 3U);
        for (const auto& one : list->nanoapps) {
            if (one->app_id == kBlackBox) return one->enabled ? "" : "disabled";
        }
        return "absent";
    }
    std::string Snapshot(const Bytes& id = {}) {
        const auto count = Ask(6) ? Expect(7) : std::nullopt;
        if (!count || count->size() != 4) return "no count";
        if (Get<uint32_t>(*count, 0) == 0) return "no sensors";
        EXPECT_EQ(Get<uint32_t>(*count, 0), 7U);
        const auto reply = Ask(1, id) ? Expect(2) : std::nullopt;
        if (!reply || reply->size() != 5 + 9 * 7) return "no snapshot";
        fragments = Get<uint32_t>(*reply, 0);
        cookie = reply->at(4);
        for (size_t at = 5; at < reply->size(); at += 9) {
            newest[reply->at(at)] = Get<uint64_t>(*reply, at + 1);
        }
        return "";
    }
    std::string Fragment(uint32_t index) {
        if (!AskFragment(index)) return "no fragment";
        std::set<uint8_t> types;
        for (;;) {
            const auto container = Next();
            const auto* message = container ? container->message.AsNanoappMessage() : nullptr;
            if (message == nullptr) return "no fragment";
            if (message->message_type == 4) break;
            EXPECT_EQ(message->message_type, 5U);
            Take(message->message);
            types.insert(message->message.at(0));
        }
        mixed += types.size() > 1 ? 1 : 0;
        return "";
    }
    std::string Exchange() {
        std::string end = List();
        if (end.empty()) end = Snapshot();
        for (uint32_t i = 0; i < fragments && end.empty(); ++i) end = Fragment(i);
        return end.empty() ? Verdict() : end;
    }
    // What the pieces make together: "whole", or all that is wrong with them.
    std::string Verdict() const {
        std::set<std::string> all = wrong;
        for (const auto& [type, buffer] : buffers) {
            if (std::ranges::count(buffer.second, 0) != 0) all.insert("lost");
        }
        if (buffers.size() < 7) all.insert("missing");
        if (garbage != 0) all.insert("garbage");
        std::string verdict;
        for (const std::string& one : all) verdict += (verdict.empty() ? "" : " ") + one;
        return verdict.empty() ? "whole" : verdict;
    }

    uint32_t fragments = 0;
    uint8_t cookie = 0;
    std::map<uint8_t, uint64_t> newest;
    std::map<uint8_t, std::pair<Bytes, Bytes>> buffers;  // bytes, and how often each came
    int garbage = 0;
    int mixed = 0;      // fragments that hold several sensors' data
    int backwards = 0;  // pieces that came after a later one
    std::set<std::string> wrong;

  private:
    // A piece that a client must refuse leaves only its word.
    void Take(const Bytes& piece) {
        static const std::map<uint8_t, uint32_t> kSizes = {{1, 16},  {6, 16},  {8, 16}, {10, 8},
                                                           {196, 8}, {200, 8}, {214, 8}};
        const auto size = kSizes.find(piece.at(0));
        const auto total = Get<uint32_t>(piece, 2);
        const auto offset = Get<uint32_t>(piece, 6);
        const auto length = Get<uint32_t>(piece, 10);
        std::string word;
        if (piece.size() == 14)
            word = "short";
        else if (piece[1] != cookie)
            word = "cookie";
        else if (size == kSizes.end())
            word = "type";
        else if (total > 200'000'000 || total % size->second != 0)
            word = "total";
        else if (offset >= total || length > total - offset)
            word = "bounds";
        else if (length != piece.size() - 14)
            word = "truncated";
        if (!word.empty()) {
            wrong.insert(word);
            return;
        }
        auto& [bytes, times] = buffers[piece[0]];
        bytes.resize(total);
        times.resize(total);
        backwards += offset < last_[piece[0]] ? 1 : 0;
        last_[piece[0]] = offset;
        for (uint32_t i = 0; i < length; ++i) {
            bytes[offset + i] = piece[14 + i];
            if (++times[offset + i] > 1) wrong.insert("duplicate");
        }
    }

    const int fd_;
    std::map<uint8_t, uint32_t> last_;
};

class ContexthubdTest : public testing::Test {
  protected:
    ~ContexthubdTest() override {
        fs::remove(kSocket);
        fs::remove(kLog);
    }
};

// The times between records in seconds, and the values, of one sensor.
struct History {
    double seconds = 0;
    std::vector<float> values;
};

History Read(const Client& client, uint8_t type, size_t values, double unit) {
    History history;
    const Bytes& bytes = client.buffers.at(type).first;
    for (size_t at = 0; at < bytes.size(); at += 4 + 4 * values) {
        history.seconds += Get<uint32_t>(bytes, at) * unit;
        for (size_t i = 0; i < values; ++i) {
            history.values.push_back(GetFloat(bytes, at + 4 + 4 * i));
        }
    }
    return history;
}

TEST_F(ContexthubdTest, TellsWhatSevenSensorsSaw) {
    Daemon daemon("");
    ASSERT_TRUE(daemon.Up());
    Client client;
    ASSERT_EQ(client.Exchange(), "whole") << ReadFile(kLog);
    EXPECT_GT(client.fragments, 5U);
    EXPECT_GT(client.mixed, 0);
    EXPECT_GT(client.backwards, 0);

    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    const struct {
        uint8_t type;
        size_t values;
        double unit;
        double least, most;        // of each value
        double shortest, longest;  // seconds
    } sensors[] = {
            {1, 3, 1e-6, -30, 30, 100, 140}, {6, 3, 1e-6, -6, 6, 100, 140},
            {8, 3, 1e-6, -60, 60, 100, 140}, {10, 1, 1e-6, 950, 1050, 100, 140},
            {196, 1, 1e-3, 0, 1, 600, 9000}, {200, 1, 1e-6, 1, 1, 10, 600},
            {214, 1, 1e-6, 1, 1, 10, 600},
    };
    for (const auto& sensor : sensors) {
        const History history = Read(client, sensor.type, sensor.values, sensor.unit);
        SCOPED_TRACE(int{sensor.type});
        EXPECT_GT(history.seconds, sensor.shortest);
        EXPECT_LT(history.seconds, sensor.longest);
        const auto [least, most] = std::ranges::minmax(history.values);
        EXPECT_GE(least, sensor.least);
        EXPECT_LE(most, sensor.most);
        const double newest = static_cast<double>(client.newest.at(sensor.type)) * 1e-9;
        EXPECT_GE(newest + 1e-6, history.seconds);  // nothing is from before the boot
        EXPECT_LE(newest, std::max(static_cast<double>(now.tv_sec) + 1, history.seconds + 1e-6));
    }
    // A step twice a second swings the arm, and what the arm hangs from pulls with 1 g.
    const History acceleration = Read(client, 1, 3, 1e-6);
    double sum = 0;
    for (size_t i = 0; i < acceleration.values.size(); i += 3) {
        sum += std::hypot(acceleration.values[i], acceleration.values[i + 1],
                          acceleration.values[i + 2]);
    }
    EXPECT_NEAR(sum / (static_cast<double>(acceleration.values.size()) / 3), 10, 1);
    // Put on, and taken off, by turns.
    const History wrist = Read(client, 196, 1, 1e-3);
    EXPECT_EQ(std::ranges::count(wrist.values, 1), 5);
    EXPECT_EQ(std::ranges::count(wrist.values, 0), 4);
}

TEST_F(ContexthubdTest, KeepsClientsApartAndBytesTheSame) {
    Daemon daemon("");
    ASSERT_TRUE(daemon.Up());
    Client one, other;
    EXPECT_TRUE(one.AskFragment(0));  // of no snapshot yet: no answer
    ASSERT_EQ(one.Snapshot({42, 0, 0, 0}) + other.Snapshot(), "");
    EXPECT_NE(one.cookie, other.cookie);
    for (uint32_t i = 0; i < one.fragments; ++i) {
        ASSERT_EQ(one.Fragment(i) + other.Fragment(other.fragments - 1 - i), "");
    }
    EXPECT_EQ(one.Verdict() + other.Verdict(), "wholewhole");
    EXPECT_EQ(one.buffers, other.buffers);
    EXPECT_TRUE(one.AskFragment(one.fragments));  // one too many: no answer
    const uint8_t before = one.cookie;
    ASSERT_EQ(one.Snapshot(), "");
    EXPECT_NE(one.cookie, before);
    daemon.End(SIGKILL);
    for (const bool same : {true, false}) {  // and with another seed, all is different
        Daemon again(same ? "--order sorted" : "--seed 2");
        ASSERT_TRUE(again.Up());
        Client later;
        EXPECT_EQ(later.Exchange(), "whole");
        EXPECT_EQ(later.buffers == one.buffers, same);
        EXPECT_EQ(later.backwards == 0, same);
    }
}

TEST_F(ContexthubdTest, ManyRecords) {
    Daemon daemon("--records 100000");
    ASSERT_TRUE(daemon.Up());
    Client client;
    EXPECT_EQ(client.Exchange(), "whole");
    size_t records = 0;
    for (const auto& [type, buffer] : client.buffers) {
        records += buffer.first.size() / (type <= 8 ? 16 : 8);
    }
    EXPECT_EQ(records, 100000U);
}

TEST_F(ContexthubdTest, MisbehavesAsTold) {
    const struct {
        const char* options;
        const char* first;  // client's end
        bool connected = true;
    } cases[] = {
            {"--absent", "absent"},
            {"--disabled", "disabled"},
            {"--no-sensors", "no sensors"},
            {"--wrong-cookie 3", "cookie lost"},
            {"--duplicate 3", "duplicate"},
            {"--lose 3", "lost"},
            {"--short 3", "lost short"},
            {"--truncate 3", "lost truncated"},
            {"--huge-offset 3", "bounds lost"},
            {"--huge-length 3", "bounds lost"},
            {"--huge-total 3", "lost total"},
            {"--odd-total 3", "lost total"},
            {"--unsupported-type 3", "lost type"},
            {"--garbage 2", "garbage"},
            {"--garbage 1 --lose 2 --order sorted", "garbage lost"},
            {"--delay 3 --records 100", "whole"},
            {"--hang-up-at list-request", "no list", false},
            {"--hang-up-at received:2", "no count", false},
            {"--hang-up-at snapshot-reply", "no snapshot", false},
            {"--hang-up-at fragment-data:6", "no fragment", false},
            {"--hang-up-at fragment-done:2 --delay 1", "no fragment", false},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.options);
        Daemon daemon(std::string(one.options) + " --faulty-clients 2");  // Up() is the first
        ASSERT_TRUE(daemon.Up());
        Client first, second;
        EXPECT_EQ(first.Exchange(), one.first) << ReadFile(kLog);
        EXPECT_EQ(first.HearsNothing(), one.connected);
        EXPECT_EQ(second.Exchange(), "whole");
    }
}

TEST_F(ContexthubdTest, NoClientHoldsUpAnother) {
    for (const char* options :
         {"--hang-at count-reply", "--hang-at count-request", "--delay 600000"}) {
        Daemon daemon(std::string(options) + " --faulty-clients 2");
        ASSERT_TRUE(daemon.Up());
        Client hung, other;
        EXPECT_TRUE(hung.Ask(6));
        EXPECT_EQ(other.Exchange(), "whole");
        EXPECT_TRUE(hung.HearsNothing()) << options;
    }
    // Who asks without reading is dropped when enough waits; the others don't notice.
    Daemon daemon("");
    ASSERT_TRUE(daemon.Up());
    Client greedy, other;
    ASSERT_EQ(greedy.Snapshot() + other.Snapshot(), "");
    int asked = 0;
    while (greedy.AskFragment(0)) ++asked;
    EXPECT_GT(asked, 20);
    EXPECT_EQ(other.Exchange(), "whole");
    EXPECT_NE(ReadFile(kLog).find("client 2: it does not read what it asks for; hanging up"),
              std::string::npos);
}

TEST_F(ContexthubdTest, IgnoresWhatItCannotRead) {
    Daemon daemon("");
    ASSERT_TRUE(daemon.Up());
    Client client;
    fbs::ChreMessageUnion other;
    other.Set(fbs::Request2T());
    EXPECT_TRUE(client.SendContainer(std::move(other)));
    EXPECT_TRUE(client.Ask(6, {}, kBlackBox + 1));
    EXPECT_TRUE(client.Ask(8));
    EXPECT_TRUE(client.Ask(3, {0, 0, 0, 0}));
    EXPECT_TRUE(client.Ask(1, {1, 2, 3}));
    EXPECT_TRUE(client.SendBytes("", 0));
    Bytes bytes(40000, 0xFF);
    for (size_t size = 1; size <= bytes.size(); size += size) {
        EXPECT_TRUE(client.SendBytes(bytes.data(), size));
    }
    EXPECT_TRUE(client.SendBytes(bytes.data(), bytes.size()));
    {
        Client gone;
        EXPECT_TRUE(gone.AskList());
    }
    EXPECT_EQ(client.Exchange(), "whole");
    const std::string log = ReadFile(kLog);
    for (const char* line :
         {"of union number 2,", "to nanoapp 0x4E6F727665001026,", "no message of type 8;",
          "type 3 to the black box with 4 bytes, not 8;", "with 3 bytes, not 4;",
          "a datagram of 0 bytes", "a datagram of 1 bytes that holds no message; ignored",
          "a datagram of 40000 bytes, of which 32768 are the most"}) {
        EXPECT_NE(log.find(line), std::string::npos) << line << "\n" << log;
    }
}

TEST_F(ContexthubdTest, LeavesNothingBehindAndTakesNothingAway) {
    const auto refused = [](const std::string& options, int status, const char* sentence) {
        Daemon daemon(options);
        EXPECT_EQ(daemon.End(0), status) << options;
        EXPECT_NE(ReadFile(kLog).find(sentence), std::string::npos) << ReadFile(kLog);
    };
    std::ofstream(kSocket) << "precious";
    refused("", 1, "cannot listen at /tmp/hub.socket: there is something else than a socket");
    EXPECT_EQ(ReadFile(kSocket), "precious");
    fs::remove(kSocket);
    refused("--socket /none/chre", 1, "cannot listen at /none/chre: No such file or directory");
    refused("--records 3", 2, "3 not in range 25 to 10000000");
    refused("--hang-at nowhere:2", 2, "'nowhere:2' is no MESSAGE[:N]");
    {
        const fs::path property = "/dev/__properties__/vendor.sim.contexthubd.args";
        std::ofstream(property) << " --records  40\n--order up";
        refused("", 2, "--order: up not in");
        std::ofstream(property) << "--absent";
        Daemon daemon("--records 40");
        EXPECT_TRUE(daemon.Up());
        EXPECT_EQ(Client().Exchange(), "absent");
        fs::remove(property);
    }
    EXPECT_TRUE(fs::exists(kSocket));  // it was killed: the next one takes the place over
    Daemon daemon("--records 40");
    ASSERT_TRUE(daemon.Up());
    refused("", 1, "a daemon is listening there already; end it, or choose another path");
    Client client;
    EXPECT_EQ(client.Exchange(), "whole");
    EXPECT_EQ(daemon.End(SIGTERM), 0);
    EXPECT_EQ(client.Next(), nullptr);
    EXPECT_FALSE(fs::exists(kSocket));
    for (const auto& entry : fs::directory_iterator("/tmp")) {
        EXPECT_FALSE(entry.path().filename().string().starts_with("hub.socket"));
    }
}

}  // namespace
