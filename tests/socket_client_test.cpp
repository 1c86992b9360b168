// The context hub link with a daemon whose end is written here, inside the simulated wearable. The
// tests own the back-off's clock, so nothing below waits for hours, or for luck.

#include <android-base/unique_fd.h>
#include <cutils/sockets.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <string>
#include <system_error>
#include <thread>

#include "host_log.h"
#include "hub_daemon.h"
#include "no_threads.h"
#include "pattern.h"
#include "processes.h"
#include "socket_client.h"

namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

// Lines that one thread adds and another waits for.
class Lines {
  public:
    void Add(std::string line) {
        const std::lock_guard lock(mutex_);
        lines_.push_back(std::move(line));
        added_.notify_all();
    }
    // The next one that nobody has taken yet.
    std::string Next(milliseconds patience = 60s) {
        std::unique_lock lock(mutex_);
        if (!added_.wait_for(lock, patience, [this] { return !lines_.empty(); }))
            return "(nothing)";
        std::string line = std::move(lines_.front());
        lines_.pop_front();
        return line;
    }
    // All that nobody has taken yet.
    std::deque<std::string> Take() {
        const std::lock_guard lock(mutex_);
        return std::exchange(lines_, {});
    }

  private:
    std::mutex mutex_;
    std::condition_variable added_;
    std::deque<std::string> lines_;
};

Lines records;                          // the system log, "PRIORITY message"
std::function<void()> when_connecting;  // called after a successful connect, before it is told
std::function<void()> when_sending;     // called before the client's send
int client_socket = -1;                 // of the last connect
std::atomic<int> epoll_error = 0;       // what the next wait for input fails with

}  // namespace

int __android_log_vprint(int priority, const char* tag, const char* format, va_list arguments) {
    char text[300];
    std::vsnprintf(text, sizeof text, format, arguments);
    records.Add(std::to_string(priority) + (std::string(tag) == "CHRE" ? " " : " wrong tag ") +
                text);
    return 1;
}

extern "C" int __real_socket_local_client_connect(int fd, const char* name, int space, int type);
extern "C" int __wrap_socket_local_client_connect(int fd, const char* name, int space, int type) {
    const int result = __real_socket_local_client_connect(fd, name, space, type);
    if (result != -1) client_socket = fd;
    if (result != -1 && when_connecting) when_connecting();
    return result;
}

extern "C" ssize_t __real_send(int fd, const void* data, size_t length, int flags);
extern "C" ssize_t __wrap_send(int fd, const void* data, size_t length, int flags) {
    if (when_sending && fd == client_socket) when_sending();
    return __real_send(fd, data, length, flags);
}

extern "C" int __real_epoll_wait(int epoll, epoll_event* events, int most, int millis);
extern "C" int __wrap_epoll_wait(int epoll, epoll_event* events, int most, int millis) {
    return (errno = epoll_error.exchange(0)) != 0 ? -1
                                                  : __real_epoll_wait(epoll, events, most, millis);
}

namespace android::chre {
namespace {

using Log = std::deque<std::string>;

constexpr char kNoSocket[] = "5 Tried sending a message, but don't have a valid socket handle";

// Tells every callback as a line, and does what the test wants done in it.
class Callbacks : public SocketClient::ICallbacks {
  public:
    explicit Callbacks(Lines& lines) : lines_(lines) {}
    ~Callbacks() override { lines_.Add("released"); }
    void onMessageReceived(const void* data, uint32_t length) override {
        if (in_message) in_message();
        lines_.Add("message " + std::string(static_cast<const char*>(data), length));
    }
    void onConnected() override { lines_.Add("connected"); }
    void onConnectionAbandoned() override { lines_.Add("abandoned"); }
    void onDisconnected() override { lines_.Add("disconnected"); }

    std::function<void()> in_message;

  private:
    Lines& lines_;
};

// A standard stream that goes elsewhere for a while.
class Redirected {
  public:
    Redirected(int stream, int target) : stream_(stream), saved_(dup(stream)) {
        dup2(target, stream_);
    }
    ~Redirected() { dup2(saved_.get(), stream_); }

  private:
    const int stream_;
    const base::unique_fd saved_;
};

// Takes what goes to standard output and error.
struct Captured {
    std::string Text(int stream) const { return ReadFd(files[stream - 1].get()); }
    const base::unique_fd files[2]{base::unique_fd(memfd_create("out", MFD_CLOEXEC)),
                                   base::unique_fd(memfd_create("err", MFD_CLOEXEC))};
    const Redirected out{STDOUT_FILENO, files[0].get()};
    const Redirected err{STDERR_FILENO, files[1].get()};
};

class SocketClientTest : public testing::Test {
  protected:
    // A sanitizer's own thread comes with the first one, and stays.
    static void SetUpTestSuite() {
        std::thread([] {}).join();
    }
    void SetUp() override { records.Take(); }
    void TearDown() override {
        when_connecting = nullptr;
        client_.disconnect();
        daemon_.HangUp();
        callbacks_.clear();
        EXPECT_EQ(census_.Newcomers(), "");
    }
    void Connect() {
        ASSERT_TRUE(client_.connectInBackground("hub", callbacks_));
        daemon_.Accept();
        ASSERT_EQ(events_.Next(), "connected");
        ASSERT_EQ(records.Take(), Log{"3 Successfully (re)connected"});
    }
    bool Send(const std::string& data) { return client_.sendMessage(data.data(), data.size()); }
    // The one record, and the result, of something that fails.
    std::string Failure(bool result) {
        EXPECT_FALSE(result);
        const Log log = records.Take();
        return log.size() == 1 ? log.front() : std::to_string(log.size()) + " records";
    }

    HubDaemon daemon_{"hub"};
    const ProcessCensus census_;
    Lines events_;
    sp<Callbacks> callbacks_ = new Callbacks(events_);
    std::vector<milliseconds> delays_;
    std::atomic<bool> wait_for_ever_ = false;
    SocketClient client_{[this](milliseconds delay) {
        delays_.push_back(delay);
        if (!wait_for_ever_) return steady_clock::time_point::min();
        events_.Add("waiting");
        return steady_clock::time_point::max();
    }};
};

TEST_F(SocketClientTest, ArgumentsAreCheckedOnTheSpot) {
    const std::string longest(63, 'n');
    for (const auto& [name, callbacks, error] :
         {std::tuple{longest + "n", callbacks_,
                     "6 Socket name length parameter is too long (64, max 64)"},
          {longest, {}, "6 Callbacks parameter must be provided"}}) {
        EXPECT_EQ(Failure(client_.connectInBackground(name.c_str(), callbacks)), error);
        EXPECT_EQ(Failure(Send("early")), kNoSocket);
        Connect();
        EXPECT_FALSE(client_.connectInBackground(name.c_str(), callbacks));
        EXPECT_EQ(records.Take(), Log({"5 Re-connecting socket with implicit disconnect",
                                       "3 Waiting for RX thread to exit", error}));
    }
    EXPECT_EQ(Failure(client_.doConnect(longest.c_str(), callbacks_, false)),
              "6 Couldn't connect client socket to '" + longest + "': No such file or directory");
    EXPECT_EQ(Failure(Send("late")), kNoSocket);
    HubDaemon daemon(longest);
    EXPECT_TRUE(client_.doConnect(longest.c_str(), callbacks_, false));
    daemon.Accept();
    EXPECT_TRUE(Send("now"));
    EXPECT_EQ(daemon.Receive(), "now");
    client_.disconnect();
    EXPECT_EQ(delays_.size(), 2);  // none but Connect()'s
}

TEST_F(SocketClientTest, FirstAttemptComesAQuarterOfASecondLater) {
    SocketClient client;
    const auto start = steady_clock::now();
    ASSERT_TRUE(client.connectInBackground("hub", callbacks_));
    EXPECT_EQ(events_.Next(), "connected");
    EXPECT_GE(steady_clock::now() - start, 250ms);
}

TEST_F(SocketClientTest, AbsentDaemonIsTriedOnTheWholeScheduleAndGivenUp) {
    std::string copies;
    {
        const Captured streams;
        ASSERT_TRUE(client_.connectInBackground("none", callbacks_));
        callbacks_.clear();
        EXPECT_EQ(events_.Next(), "abandoned");
        EXPECT_EQ(events_.Next(), "released");
        copies = streams.Text(STDOUT_FILENO) + streams.Text(STDERR_FILENO);
    }

    std::vector<milliseconds> schedule(41, 250ms);
    schedule.insert(schedule.end(), {500ms, 1000ms, 2000ms});
    schedule.resize(2500, 4000ms);
    EXPECT_EQ(delays_, schedule);
    Log expected;
    for (size_t attempt = 42; attempt <= 2500; ++attempt) {
        expected.push_back("6 Couldn't connect client socket to 'none': No such file or directory");
        const char* const next = attempt == 42 ? "1000" : attempt == 43 ? "2000" : "4000";
        expected.push_back(std::string("5 Failed to (re)connect, next try in ") + next + " ms");
    }
    EXPECT_EQ(static_cast<size_t>(std::ranges::count(copies, '\n')), expected.size());
    EXPECT_EQ(records.Take(), expected);
    client_.disconnect();
    EXPECT_EQ(records.Take(), Log{"3 Waiting for RX thread to exit"});

    // Callbacks that own their client take nothing else along when the receive thread lets go.
    struct Owner : Callbacks {
        using Callbacks::Callbacks;
        SocketClient client{[](milliseconds) { return steady_clock::time_point::min(); }};
    };
    const Captured quiet;
    sp<Owner> owner(new Owner(events_));
    ASSERT_TRUE(owner->client.connectInBackground("none", owner));
    owner.clear();
    EXPECT_EQ(events_.Next(), "abandoned");
    EXPECT_EQ(events_.Next(), "released");
}

TEST_F(SocketClientTest, DatagramsPassWholeAndInOrder) {
    callbacks_->in_message = [this] {
        EXPECT_TRUE(Send("answer"));
        epoll_error = EINTR;  // as when a signal comes
    };
    Connect();
    std::string bytes(32768, '\0');
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 31 >> 3);
    const std::string datagrams[] = {std::string(1, '\0'), bytes, "last"};
    for (const std::string& datagram : datagrams) daemon_.Send(datagram);
    for (const std::string& datagram : datagrams) {
        EXPECT_EQ(events_.Next(), "message " + datagram);
        EXPECT_EQ(daemon_.Receive(), "answer");
    }
    bytes.append(200'000, 'x');
    EXPECT_TRUE(Send(bytes));
    EXPECT_EQ(daemon_.Receive(), bytes);
    EXPECT_EQ(records.Take(), Log());
}

TEST_F(SocketClientTest, DescriptorsAreAsAgreed) {
    const int least = dup(0);  // the first free one before and after: the client's are between
    close(least);
    const auto option = [](int socket, int name, auto value) {
        socklen_t size = sizeof value;
        EXPECT_EQ(getsockopt(socket, SOL_SOCKET, name, &value, &size), 0);
        return value;
    };
    Connect();
    daemon_.Send("x");
    EXPECT_EQ(events_.Next(), "message x");
    EXPECT_EQ(option(client_socket, SO_TYPE, 0), SOCK_SEQPACKET);
    EXPECT_EQ(option(client_socket, SO_SNDTIMEO, timeval{}).tv_sec, 3);
    EXPECT_EQ(option(client_socket, SO_SNDTIMEO, timeval{}).tv_usec, 0);
    EXPECT_EQ(fcntl(client_socket, F_GETFL) & O_NONBLOCK, 0);
    // The kernel grants as much as it grants anybody.
    const base::unique_fd other(HubDaemon::Socket());
    const int wanted = 0x200000;
    setsockopt(other.get(), SOL_SOCKET, SO_SNDBUF, &wanted, sizeof wanted);
    EXPECT_EQ(option(client_socket, SO_SNDBUF, 0), option(other.get(), SO_SNDBUF, 0));

    for (int fd = least; fd < other.get(); ++fd) EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC) << fd;
}

TEST_F(SocketClientTest, LostConnectionIsToldAndMadeAnew) {
    enum Loss { kHangUp, kUnread, kPollError };
    callbacks_->in_message = [] { epoll_error = EINVAL; };
    Connect();
    for (const auto& [loss, log] :
         {std::pair{kHangUp, Log{"4 Socket disconnected on remote end"}},
          {kUnread,
           {"6 Exiting RX thread: Connection reset by peer (104)\n", "4 Force onDisconnected"}},
          {kPollError, {"6 Poll error: Invalid argument (22)\n"}}}) {
        wait_for_ever_ = true;
        EXPECT_TRUE(loss != kUnread || Send("never read"));
        if (loss == kPollError) {
            daemon_.Send("x");
        } else {
            daemon_.HangUp();
        }
        EXPECT_EQ(events_.Next(), loss == kPollError ? "message x" : "disconnected");
        EXPECT_EQ(events_.Next(), "waiting");
        EXPECT_EQ(records.Take(), log);
        EXPECT_EQ(Failure(Send("lost")), kNoSocket);
        // A second connect disconnects first.
        wait_for_ever_ = false;
        delays_.clear();
        ASSERT_TRUE(client_.connectInBackground("hub", callbacks_));
        EXPECT_EQ(records.Next(), "5 Re-connecting socket with implicit disconnect");
        EXPECT_EQ(records.Next(), "3 Waiting for RX thread to exit");
        daemon_.Accept();
        EXPECT_EQ(events_.Next(), "connected");
        EXPECT_EQ(records.Next(), "3 Successfully (re)connected");
        daemon_.HangUp();
        daemon_.Accept();
        EXPECT_EQ(events_.Next(), "disconnected");
        EXPECT_EQ(events_.Next(), "connected");
        EXPECT_EQ(delays_, (std::vector<milliseconds>{250ms, 250ms}));
        records.Take();
    }
}

TEST_F(SocketClientTest, ReceiveThreadMayNeitherConnectNorDisconnect) {
    callbacks_->in_message = [this] {
        client_.disconnect();
        EXPECT_FALSE(client_.connectInBackground("hub", callbacks_));
    };
    Connect();
    for (const std::string datagram : {"one", "two"}) {
        daemon_.Send(datagram);
        EXPECT_EQ(events_.Next(), "message " + datagram);
        EXPECT_EQ(records.Take(),
                  Log({"6 disconnect() can't be called from a receive thread callback",
                       "6 Can't attempt to connect from a receive thread callback"}));
    }
}

// Where it would return into what is gone.
TEST_F(SocketClientTest, ClientDeletedInACallbackEndsTheProcess) {
    EXPECT_DEATH(
            {
                auto* const client = new SocketClient;
                callbacks_->in_message = [client] { delete client; };
                client->connectInBackground("hub", callbacks_);
                daemon_.Accept();
                daemon_.Send("x");
                const std::string event = events_.Next() + ", " + events_.Next();
                std::fputs(event.c_str(), stderr);
                std::_Exit(0);
            },
            "terminate called");
}

TEST_F(SocketClientTest, DisconnectEndsEveryStateWithoutACallback) {
    const Log waiting{"3 Waiting for RX thread to exit"};
    client_.disconnect();
    EXPECT_EQ(records.Take(), Log());

    wait_for_ever_ = true;
    ASSERT_TRUE(client_.connectInBackground("hub", callbacks_));
    ASSERT_EQ(events_.Next(), "waiting");
    client_.disconnect();
    EXPECT_EQ(records.Take(), waiting);
    wait_for_ever_ = false;

    Connect();
    client_.disconnect();
    EXPECT_EQ(records.Take(), waiting);
    EXPECT_EQ(daemon_.Receive(), "");

    // Asked for from another thread when the socket is connected and nobody else knows it yet, and
    // then in a callback.
    std::thread other;
    const auto ask = [&] {
        other = std::thread([this] { client_.disconnect(); });
        EXPECT_EQ(records.Next(), waiting.front());
        events_.Add("asked");
    };
    when_connecting = ask;
    ASSERT_TRUE(client_.connectInBackground("hub", callbacks_));
    EXPECT_EQ(events_.Next(), "asked");
    other.join();
    when_connecting = nullptr;
    daemon_.Accept();
    EXPECT_EQ(daemon_.Receive(), "");
    EXPECT_EQ(events_.Take(), Log());
    EXPECT_EQ(records.Take(), Log{"3 Successfully (re)connected"});

    callbacks_->in_message = ask;
    Connect();
    daemon_.Send("one");
    daemon_.Send("two");
    EXPECT_EQ(events_.Next(), "asked");
    other.join();
    EXPECT_EQ(events_.Next(), "message one");
    callbacks_.clear();
    EXPECT_EQ(events_.Take(), Log{"released"});
    EXPECT_EQ(records.Take(), Log());
}

TEST_F(SocketClientTest, DaemonThatAcceptsNobodyHoldsNobodyUp) {
    HubDaemon full("full", 0);
    const base::unique_fd first(HubDaemon::Socket(SOCK_NONBLOCK));
    ASSERT_EQ(connect(first.get(), full.Address(), sizeof(sockaddr_un)), 0);
    const auto start = steady_clock::now();
    EXPECT_EQ(Failure(client_.doConnect("full", callbacks_, false)),
              "6 Couldn't connect client socket to 'full': Resource temporarily unavailable");
    EXPECT_LT(steady_clock::now() - start, 3s);
}

TEST_F(SocketClientTest, FailedSendsAreTold) {
    ASSERT_NE(signal(SIGPIPE, SIG_IGN), SIG_ERR);  // as the service does
    std::promise<void> tried;
    callbacks_->in_message = [&] { tried.get_future().wait(); };
    Connect();
    EXPECT_EQ(Failure(Send(std::string(8 << 20, 'x'))),
              "6 Failed to send 8388608 bytes of data: Message too long");
    EXPECT_EQ(Failure(Send("")), "5 Failed to send data; remote side disconnected");
    EXPECT_EQ(daemon_.Receive(), "");
    daemon_.Send("busy");
    daemon_.HangUp();
    EXPECT_EQ(Failure(Send("lost")), "6 Failed to send 4 bytes of data: Broken pipe");
    tried.set_value();
    EXPECT_EQ(events_.Next(), "message busy");
    EXPECT_EQ(events_.Next(), "disconnected");
}

TEST_F(SocketClientTest, SocketIsNotClosedUnderASend) {
    Connect();
    wait_for_ever_ = true;
    when_sending = [this] {
        daemon_.HangUp();
        EXPECT_EQ(events_.Next(), "disconnected");
        EXPECT_EQ(events_.Next(100ms), "(nothing)");
        EXPECT_NE(fcntl(client_socket, F_GETFD), -1);
    };
    EXPECT_FALSE(Send("x"));
    when_sending = nullptr;
    EXPECT_EQ(events_.Next(), "waiting");
    EXPECT_EQ(fcntl(client_socket, F_GETFD), -1);
}

TEST_F(SocketClientTest, WithoutThreadsOrDescriptorsNothingIsLeftBehind) {
    for (const bool background : {true, false}) {
        {
            const NoThreads none;
            EXPECT_THROW(client_.doConnect("hub", new Callbacks(events_), background),
                         std::system_error);
        }
        EXPECT_EQ(events_.Take(), Log{"released"});
        EXPECT_EQ(Failure(Send("x")), kNoSocket);
    }
    daemon_.Accept();
    daemon_.HangUp();

    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const base::unique_fd file(memfd_create("file", MFD_CLOEXEC));  // of no use to epoll
    const int next = base::unique_fd(fcntl(file.get(), F_DUPFD_CLOEXEC, 0)).get();
    rlimit few{static_cast<rlim_t>(file.get()) + 1, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &few);
    EXPECT_EQ(Failure(client_.doConnect("hub", callbacks_, false)),
              "6 Couldn't create local socket: Too many open files");
    few.rlim_cur = static_cast<rlim_t>(next) + 1;
    setrlimit(RLIMIT_NOFILE, &few);
    for (const std::string error :
         {"6 Error creating epoll fd: Too many open files (24)\n",
          "6 Error adding socket fd to epoll: Operation not permitted (1)\n"}) {
        ASSERT_TRUE(client_.connectInBackground("hub", callbacks_));
        EXPECT_EQ(events_.Next(), "connected");
        EXPECT_EQ(events_.Next(), "abandoned");
        EXPECT_EQ(records.Take(), Log({"3 Successfully (re)connected", error}));
        EXPECT_EQ(fcntl(client_socket, F_GETFD), -1);  // closed before the thread is waited for
        setrlimit(RLIMIT_NOFILE, &limit);
        daemon_.Accept();
        EXPECT_EQ(daemon_.Receive(), "");
        client_.disconnect();
        records.Take();
        when_connecting = [&] { dup2(file.get(), client_socket); };
    }
    when_connecting = nullptr;
    Connect();
}

// Nothing may race, hang or be left behind. What counts is that it ends, what the census finds, and
// what the sanitizers say.
TEST_F(SocketClientTest, EverythingAtOnce) {
    std::atomic<bool> stop = false;
    const auto until_stopped = [&stop](auto step) {
        return std::thread([&stop, step] {
            while (!stop) step();
        });
    };
    callbacks_->in_message = [this] { Send("from a callback"); };
    const Captured quiet;  // nobody wants to read thousands
    std::thread threads[] = {until_stopped([this] { Send("from a thread"); }),
                             until_stopped([this] { Send(std::string(100'000, 'x')); }),
                             until_stopped([this] { client_.disconnect(); }), until_stopped([&] {
                                 daemon_.Accept();
                                 daemon_.Send("x");
                                 daemon_.HangUp();
                             })};
    for (int i = 0; i < 300; ++i) client_.doConnect("hub", callbacks_, i % 2 == 0);
    stop = true;
    client_.doConnect("hub", callbacks_, false);  // for an accept that waits
    for (std::thread& thread : threads) thread.join();
}

TEST_F(SocketClientTest, RecordsAreCopiedToTheStreams) {
    std::string texts[2];
    {
        const Captured streams;
        client_.doConnect("none", callbacks_, false);
        Send("x");
        std::FILE* const full = std::fopen("/dev/full", "we");
        errno = EDOM;
        outputHostLogErrno("Couldn't", "close", 7, EBADF);
        outputHostLog(3, stdout, "told", "close", 8);
        outputHostLog(3, full, "lost", "close", 9);
        outputHostLog(3, stdout, "%s", "long", 10, std::string(2000, 'x').c_str());
        EXPECT_EQ(errno, EDOM);
        std::fclose(full);
        for (const int i : {0, 1}) texts[i] = streams.Text(i + 1);
    }
    EXPECT_TRUE(IsMatch(texts[0],
                        "sendMessage:\\d+: Tried sending a message, "
                        "but don't have a valid socket handle\nclose:8: told\nlong:10: x{1013}\n"))
            << texts[0];
    EXPECT_TRUE(
            IsMatch(texts[1],
                    "tryConnect:\\d+: Couldn't connect client socket to 'none': No such file or "
                    "directory\nclose:7: Couldn't: Bad file descriptor \\(9\\)\n\n"))
            << texts[1];
    EXPECT_EQ(records.Take().size(), 6);
}

}  // namespace
}  // namespace android::chre
