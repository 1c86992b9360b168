// The wearable's context hub as a client of its socket meets it: every byte is written and read
// here, through the schema alone.

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "host_messages_generated.h"

namespace fbs = chre::fbs;
namespace fs = std::filesystem;

namespace {

using Bytes = std::vector<uint8_t>;

const std::string kSocket = "/tmp/hub.socket";
const std::string kLog = "/tmp/hub.log";
constexpr uint64_t kBlackBox = 0x4E6F727665001025;

const std::map<uint8_t, uint32_t> kRecordSizes = {{1, 16},  {6, 16},  {8, 16}, {10, 8},
                                                  {196, 8}, {200, 8}, {214, 8}};

uint32_t Get(const Bytes& bytes, size_t at) {
    uint32_t value = 0;
    for (size_t i = 0; i < sizeof value; ++i) value |= uint32_t{bytes.at(at + i)} << (8 * i);
    return value;
}

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

int Connect() {
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    const timeval patience{60, 0};  // only a hub that is broken takes that long
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    sockaddr_un address{AF_UNIX, {}};
    kSocket.copy(address.sun_path, sizeof address.sun_path - 1);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return fd;
    close(fd);
    return -1;
}

class Daemon {
  public:
    explicit Daemon(const std::string& options) {
        std::string line = "exec contexthubd --socket " + kSocket + " " + options;
        fs::remove(kLog);  // another daemon may be writing into it still
        line += " >" + kLog + " 2>&1";
        const char* const argv[] = {"sh", "-c", line.c_str(), nullptr};
        EXPECT_EQ(posix_spawnp(&pid_, argv[0], nullptr, nullptr, const_cast<char**>(argv), environ),
                  0);
    }
    ~Daemon() { End(SIGKILL); }
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    // Whether it serves; takes one connection to see.
    bool Up() const {
        for (siginfo_t end{};
             waitid(P_PID, static_cast<id_t>(pid_), &end, WEXITED | WNOHANG | WNOWAIT) == 0 &&
             end.si_pid == 0;) {
            const int fd = Connect();
            if (fd >= 0) return close(fd) == 0;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return false;
    }
    // The exit status; with signal 0, once it ends by itself.
    int End(int signal) {
        int status = 0;
        if (pid_ == 0) return -1;
        if (signal != 0) kill(pid_, signal);
        waitpid(std::exchange(pid_, 0), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

  private:
    pid_t pid_ = 0;
};

// One client. Each step of its exchange gives the word for where it ended, "" when it can go on.
class Client {
  public:
    ~Client() { close(fd_); }

    bool Send(const Bytes& bytes) const {
        return send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) >= 0;
    }
    template <typename Message>
    bool SendMessage(Message message) const {
        fbs::MessageContainerT container;
        container.message.Set(std::move(message));
        container.host_addr = std::make_unique<fbs::HostAddress>(uint16_t{7});
        flatbuffers::FlatBufferBuilder builder;
        builder.Finish(fbs::CreateMessageContainer(builder, &container));
        return Send({builder.GetBufferPointer(), builder.GetBufferPointer() + builder.GetSize()});
    }
    bool Ask(uint32_t type, const Bytes& payload = {}, uint64_t app = kBlackBox) const {
        fbs::NanoappMessageT message;
        message.app_id = app;
        message.message_type = type;
        message.host_endpoint = 0x9023;
        message.message = payload;
        return SendMessage(message);
    }
    bool AskFragment(uint32_t index) const {
        return Ask(3, {static_cast<uint8_t>(index), static_cast<uint8_t>(index >> 8), 0, 0, 1, 0, 0,
                       0});
    }
    // The next message, past garbage, which is counted; null at the connection's end.
    std::unique_ptr<fbs::MessageContainerT> Next() {
        for (Bytes bytes(65536);;) {
            const ssize_t size = recv(fd_, bytes.data(), bytes.size(), 0);
            if (size <= 0) return nullptr;
            EXPECT_LE(size, 32768);
            flatbuffers::Verifier verifier(bytes.data(), static_cast<size_t>(size));
            if (fbs::VerifyMessageContainerBuffer(verifier)) {
                return fbs::UnPackMessageContainer(bytes.data());
            }
            wrong.insert("garbage");
        }
    }
    // The type and payload of the next message from the black box; 0 for anything else.
    std::pair<uint32_t, Bytes> Hear() {
        const auto container = Next();
        const auto* message = container ? container->message.AsNanoappMessage() : nullptr;
        if (message == nullptr || message->app_id != kBlackBox) return {};
        EXPECT_EQ(message->host_endpoint, 0x9023);
        return {message->message_type, message->message};
    }
    bool HearsNothing() const {
        pollfd fd{fd_, POLLIN, 0};
        return poll(&fd, 1, 0) == 0;
    }

    std::string List() {
        const auto container = SendMessage(fbs::NanoappListRequestT()) ? Next() : nullptr;
        const auto* list = container ? container->message.AsNanoappListResponse() : nullptr;
        if (list == nullptr) return "no list";
        EXPECT_GT(list->nanoapps.size(), 3U);
        const auto entry = std::ranges::find(list->nanoapps, kBlackBox,
                                             [](const auto& one) { return one->app_id; });
        if (entry == list->nanoapps.end()) return "absent";
        return (*entry)->enabled ? "" : "disabled";
    }
    std::string Snapshot(const Bytes& id = {}) {
        Ask(6);
        const auto [count_type, count] = Hear();
        if (count_type != 7 || count.size() != 4) return "no count";
        if (Get(count, 0) != kRecordSizes.size())
            return "sensors: " + std::to_string(Get(count, 0));
        Ask(1, id);
        const auto [type, reply] = Hear();
        if (type != 2 || reply.size() != 5 + 9 * kRecordSizes.size()) return "no snapshot";
        fragments = Get(reply, 0);
        cookie = reply[4];
        return "";
    }
    std::string Fragment(uint32_t index) {
        AskFragment(index);
        std::set<uint8_t> types;
        for (auto [type, payload] = Hear(); type != 4; std::tie(type, payload) = Hear()) {
            if (type != 5) return "no fragment";
            const std::string word = Take(payload);
            if (!word.empty()) wrong.insert(word);
            types.insert(payload[0]);
        }
        if (types.size() > 1) ++mixed;
        return "";
    }
    std::string Exchange() {
        std::string end = List();
        if (end.empty()) end = Snapshot();
        for (uint32_t i = 0; i < fragments && end.empty(); ++i) end = Fragment(i);
        return end.empty() ? Verdict() : end;
    }
    // "whole", or all that was wrong.
    std::string Verdict() {
        if (buffers.size() < kRecordSizes.size()) wrong.insert("lost");
        for (const auto& [type, buffer] : buffers) {
            if (std::ranges::count(buffer.second, false) != 0) wrong.insert("lost");
        }
        std::string all;
        for (const std::string& one : wrong) all += (all.empty() ? "" : " ") + one;
        return all.empty() ? "whole" : all;
    }

    uint32_t fragments = 0;
    uint8_t cookie = 0;
    std::map<uint8_t, std::pair<Bytes, std::vector<bool>>> buffers;  // and what has come
    std::set<std::string> wrong;
    int mixed = 0;      // fragments with several sensors' data
    int backwards = 0;  // pieces that came after a later one

  private:
    std::string Take(const Bytes& piece) {
        const uint8_t type = piece.at(0);
        const uint32_t total = Get(piece, 2), offset = Get(piece, 6), length = Get(piece, 10);
        if (piece.size() == 14) return "short";
        if (piece[1] != cookie) return "cookie";
        if (!kRecordSizes.contains(type)) return "type";
        if (total > 200'000'000 || total % kRecordSizes.at(type) != 0) return "total";
        if (offset >= total || length > total - offset) return "bounds";
        if (length != piece.size() - 14) return "truncated";
        auto& [bytes, come] = buffers[type];
        bytes.resize(total);
        come.resize(total);
        if (offset < std::exchange(last_[type], offset)) ++backwards;
        if (come[offset]) return "duplicate";
        std::copy(piece.begin() + 14, piece.end(), bytes.begin() + offset);
        std::fill_n(come.begin() + offset, length, true);
        return "";
    }

    const int fd_ = Connect();
    std::map<uint8_t, uint32_t> last_;
};

TEST(Contexthubd, TellsEachClientWhatSevenSensorsSaw) {
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
    EXPECT_GT(one.mixed, 0);
    EXPECT_GT(one.backwards, 0);
    EXPECT_TRUE(one.AskFragment(one.fragments));  // one too many: no answer
    const uint8_t before = one.cookie;
    ASSERT_EQ(one.Snapshot(), "");
    EXPECT_NE(one.cookie, before);

    daemon.End(SIGKILL);
    Daemon large("--records 100000");
    ASSERT_TRUE(large.Up());
    Client client;
    EXPECT_EQ(client.Exchange(), "whole");
    size_t records = 0;
    for (const auto& [type, buffer] : client.buffers) {
        records += buffer.first.size() / kRecordSizes.at(type);
    }
    EXPECT_EQ(records, 100000U);
}

TEST(Contexthubd, MisbehavesAsTold) {
    const std::pair<const char*, const char*> cases[] = {
            {"--absent", "absent"},
            {"--disabled", "disabled"},
            {"--no-sensors", "sensors: 0"},
            {"--lose 3", "lost"},
            {"--duplicate 3", "duplicate"},
            {"--wrong-cookie 3", "cookie lost"},
            {"--unsupported-type 3", "lost type"},
            {"--short 3", "lost short"},
            {"--truncate 3", "lost truncated"},
            {"--huge-length 3", "bounds lost"},
            {"--huge-offset 3", "bounds lost"},
            {"--huge-total 3", "lost total"},
            {"--odd-total 3", "lost total"},
            {"--garbage 2 --lose 2", "garbage lost"},
            {"--delay 3 --records 100", "whole"},
            {"--hang-up-at list-request", "no list"},
            {"--hang-up-at received:2", "no count"},
            {"--hang-up-at snapshot-reply", "no snapshot"},
            {"--hang-up-at fragment-done:2 --delay 1", "no fragment"},
    };
    for (const auto& [options, end] : cases) {
        SCOPED_TRACE(options);
        Daemon daemon(std::string(options) + " --faulty-clients 2");  // Up() is the first
        ASSERT_TRUE(daemon.Up());
        Client faulty, other;
        EXPECT_EQ(faulty.Exchange(), end) << ReadFile(kLog);
        EXPECT_EQ(other.Exchange(), "whole");
    }
}

TEST(Contexthubd, NoClientHoldsUpAnother) {
    for (const char* options :
         {"--hang-at count-reply", "--hang-at count-request", "--delay 600000"}) {
        Daemon daemon(std::string(options) + " --faulty-clients 2");
        ASSERT_TRUE(daemon.Up());
        Client hung, other;
        EXPECT_TRUE(hung.Ask(6) && hung.Ask(6));
        EXPECT_EQ(other.Exchange(), "whole");
        EXPECT_TRUE(hung.HearsNothing()) << options;
    }
}

TEST(Contexthubd, IgnoresWhatItCannotReadAndSaysSo) {
    Daemon daemon("");
    ASSERT_TRUE(daemon.Up());
    Client client;
    EXPECT_TRUE(client.SendMessage(fbs::Request2T()) && client.Ask(6, {}, kBlackBox + 1) &&
                client.Ask(8) && client.Ask(3, {0, 0, 0, 0}) && client.Ask(1, {1, 2, 3}));
    for (const size_t size : {0U, 1U, 7U, 64U, 40000U}) EXPECT_TRUE(client.Send(Bytes(size, 0xFF)));
    EXPECT_TRUE(Client().SendMessage(fbs::NanoappListRequestT()));  // and it is gone
    EXPECT_EQ(client.Exchange(), "whole");
    const std::string log = ReadFile(kLog);
    for (const char* line :
         {"of union number 2,", "to nanoapp 0x4E6F727665001026,", "no message of type 8;",
          "type 3 to the black box with 4 bytes, not 8;", "with 3 bytes, not 4;",
          "a datagram of 0 bytes", "a datagram of 64 bytes that holds no message; ignored",
          "a datagram of 40000 bytes, of which 32768 are the most"}) {
        EXPECT_NE(log.find(line), std::string::npos) << line << "\n" << log;
    }
}

TEST(Contexthubd, LeavesNothingBehindAndTakesNothingAway) {
    const auto refused = [](const char* options, int status, const char* sentence) {
        EXPECT_EQ(Daemon(options).End(0), status) << options;
        EXPECT_NE(ReadFile(kLog).find(sentence), std::string::npos) << ReadFile(kLog);
    };
    fs::remove(kSocket);
    std::ofstream(kSocket) << "precious";
    refused("", 1, "cannot listen at /tmp/hub.socket: there is something else than a socket");
    EXPECT_EQ(ReadFile(kSocket), "precious");
    fs::remove(kSocket);
    refused("--socket /none/chre", 1, "cannot listen at /none/chre: No such file or directory");
    refused("--records 3", 2, "3 not in range 25 to 10000000");
    refused("--hang-at nowhere:2", 2, "'nowhere:2' is no MESSAGE[:N]");
    const fs::path property = "/dev/__properties__/vendor.sim.contexthubd.args";
    std::ofstream(property) << " --records  40 --order up";
    refused("", 2, "--order: up not in");
    std::ofstream(property) << "--absent";
    {
        Daemon daemon("--records 40");
        EXPECT_TRUE(daemon.Up());
        EXPECT_EQ(Client().Exchange(), "absent");
    }
    fs::remove(property);
    EXPECT_TRUE(fs::exists(kSocket));  // left by a daemon that was killed: the next one replaces it
    Daemon daemon("--records 40");
    ASSERT_TRUE(daemon.Up());
    refused("", 1, "a daemon is listening there already; end it, or choose another path");
    Client client;
    EXPECT_EQ(client.Exchange(), "whole");
    EXPECT_EQ(daemon.End(SIGTERM), 0);
    EXPECT_EQ(client.Next(), nullptr);
    for (const auto& entry : fs::directory_iterator("/tmp")) {
        EXPECT_FALSE(entry.path().filename().native().starts_with("hub.socket")) << entry;
    }
    fs::remove(kLog);
}

}  // namespace
