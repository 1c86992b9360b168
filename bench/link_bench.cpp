// What the context hub link costs beside the least that could do its work: a bare sequenced-packet
// socket with epoll, and the flatbuffers library's own verifier and object API.

#include <benchmark/benchmark.h>
#include <cutils/sockets.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host_log.h"
#include "host_protocol_host.h"
#include "socket_client.h"

namespace {

// An abstract address, so that the host's /dev stays as it is.
const std::string& Name() {
    static const std::string name = std::string(1, '\0') + "link_bench." + std::to_string(getpid());
    return name;
}

template <typename Call>
int WithAddress(Call call) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    Name().copy(address.sun_path, sizeof address.sun_path);
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + Name().size());
    return call(reinterpret_cast<const sockaddr*>(&address), size);
}

}  // namespace

int socket_local_client_connect(int fd, const char* /*name*/, int /*namespace_id*/, int /*type*/) {
    const auto connect_it = [fd](auto address, auto size) { return connect(fd, address, size); };
    return WithAddress(connect_it) == 0 ? fd : -1;
}

namespace android::chre {

// Standard output is the benchmark's.
void outputHostLog(int, std::FILE*, const char*, const char*, int, ...) {}
void outputHostLogErrno(const char*, const char*, int, int) {}

namespace {

namespace fbs = ::chre::fbs;
using ::chre::HostProtocolCommon;
using flatbuffers::FlatBufferBuilder;

constexpr size_t kSize = 256;
constexpr size_t kLargest = 32768;
constexpr int kBatch = 1000;

// The processors that the two ends of a socket run on: where the scheduler puts two threads that
// take turns decides more than what they do.
struct Cpus {
    int daemon;
    int client;
};

// The same processor for both or one for each.
Cpus ChooseCpus(int64_t count) {
    cpu_set_t allowed;
    sched_getaffinity(0, sizeof allowed, &allowed);
    std::vector<int> cpus;
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (CPU_ISSET(cpu, &allowed)) cpus.push_back(cpu);
    }
    const auto wanted = static_cast<size_t>(count);
    if (cpus.size() < wanted) return {-1, -1};
    return {cpus[0], cpus[wanted - 1]};
}

// Keeps the calling thread on one processor.
class Pin {
  public:
    explicit Pin(int cpu) {
        sched_getaffinity(0, sizeof before_, &before_);
        cpu_set_t only;
        CPU_ZERO(&only);
        CPU_SET(cpu, &only);
        sched_setaffinity(0, sizeof only, &only);
    }
    ~Pin() { sched_setaffinity(0, sizeof before_, &before_); }
    Pin(const Pin&) = delete;
    Pin& operator=(const Pin&) = delete;

  private:
    cpu_set_t before_;
};

int Socket() {
    return socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
}

// Serves one client from a thread of its own until that hangs up: sends every datagram back, or,
// for one of one byte, a batch of datagrams.
class Daemon {
  public:
    explicit Daemon(int cpu) {
        WithAddress([this](auto address, auto size) { return bind(listener_, address, size); });
        listen(listener_, 1);
        thread_ = std::thread([this, cpu] {
            const Pin pin(cpu);
            const int peer = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            std::vector<char> buffer(kLargest);
            for (ssize_t size; (size = recv(peer, buffer.data(), buffer.size(), 0)) > 0;) {
                const int times = size == 1 ? kBatch : 1;
                const size_t length = size == 1 ? kSize : static_cast<size_t>(size);
                for (int i = 0; i < times; ++i) send(peer, buffer.data(), length, MSG_NOSIGNAL);
            }
            close(peer);
        });
    }
    ~Daemon() {
        thread_.join();
        close(listener_);
    }

  private:
    const int listener_ = Socket();
    std::thread thread_;
};

// Counts a batch of datagrams on the receive thread, and answers each where a round trip is
// measured.
class Counter : public SocketClient::ICallbacks {
  public:
    Counter(SocketClient& client, bool round_trips) : client_(client), round_trips_(round_trips) {}
    void onConnected() override { Finish(); }
    void onMessageReceived(const void* data, uint32_t length) override {
        if (--left_ == 0) {
            Finish();
        } else if (round_trips_) {
            client_.sendMessage(data, length);
        }
    }
    void WaitForFinish() {
        std::unique_lock lock(mutex_);
        condition_.wait(lock, [this] { return finished_; });
        finished_ = false;
    }
    void Batch() {
        left_ = kBatch;
        const char message[kSize] = {};
        client_.sendMessage(message, round_trips_ ? sizeof message : 1);
        WaitForFinish();
    }

  private:
    void Finish() {
        const std::lock_guard lock(mutex_);
        finished_ = true;
        condition_.notify_one();
    }

    SocketClient& client_;
    const bool round_trips_;
    int left_ = 0;
    std::mutex mutex_;
    std::condition_variable condition_;
    bool finished_ = false;
};

void Link(benchmark::State& state, bool round_trips, Cpus cpus) {
    const Daemon daemon(cpus.daemon);
    const Pin pin(cpus.client);  // and with it the receive thread, which this one starts
    SocketClient client;
    auto* const counter = new Counter(client, round_trips);
    const sp<SocketClient::ICallbacks> callbacks(counter);
    client.connectInBackground("", callbacks);
    counter->WaitForFinish();
    for (auto _ : state) counter->Batch();
    client.disconnect();
}

void Bare(benchmark::State& state, bool round_trips, Cpus cpus) {
    const Daemon daemon(cpus.daemon);
    const Pin pin(cpus.client);
    const int fd = Socket();
    constexpr int kSendBuffer = 0x200000;  // the link's
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
    WithAddress([fd](auto address, auto size) { return connect(fd, address, size); });
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    epoll_event input{EPOLLIN | EPOLLWAKEUP, {}};  // the link's
    epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &input);
    std::vector<char> buffer(kLargest);
    for (auto _ : state) {
        send(fd, buffer.data(), round_trips ? kSize : 1, 0);
        for (int left = kBatch; left > 0;) {
            epoll_wait(epoll, &input, 1, -1);
            const ssize_t size = recv(fd, buffer.data(), buffer.size(), 0);
            if (--left > 0 && round_trips) {
                send(fd, buffer.data(), static_cast<size_t>(size), 0);
            }
        }
    }
    close(epoll);
    close(fd);
}

using Exchange = void(benchmark::State& state, bool round_trips, Cpus cpus);

void Pinned(benchmark::State& state, Exchange* exchange, bool round_trips) {
    const Cpus cpus = ChooseCpus(state.range(0));
    if (cpus.daemon < 0) {
        state.SkipWithError("too few processors");
        return;
    }
    exchange(state, round_trips, cpus);
    state.SetItemsProcessed(state.iterations() * kBatch);
}

void OneAndTwoCpus(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgName("cpus")->Arg(1)->Arg(2)->UseRealTime();
}
BENCHMARK_CAPTURE(Pinned, link_round_trips, Link, true)->Apply(OneAndTwoCpus);
BENCHMARK_CAPTURE(Pinned, bare_round_trips, Bare, true)->Apply(OneAndTwoCpus);
BENCHMARK_CAPTURE(Pinned, link_datagrams, Link, false)->Apply(OneAndTwoCpus);
BENCHMARK_CAPTURE(Pinned, bare_datagrams, Bare, false)->Apply(OneAndTwoCpus);

// A nanoapp's message of so many bytes, or for 0 a list of twenty nanoapps.
std::vector<uint8_t> Message(int64_t size) {
    FlatBufferBuilder builder(64);
    if (size > 0) {
        const std::vector<uint8_t> payload(static_cast<size_t>(size));
        HostProtocolCommon::encodeNanoappMessage(builder, 1, 2, 3, payload.data(), payload.size(),
                                                 ~0U, ~0U, false, false, 0);
    } else {
        std::vector<flatbuffers::Offset<fbs::NanoappListEntry>> nanoapps;
        for (uint64_t id = 1; id <= 20; ++id) {
            nanoapps.push_back(fbs::CreateNanoappListEntry(builder, id, 1));
        }
        const auto list = builder.CreateVector(nanoapps);
        HostProtocolCommon::finalize(builder, fbs::ChreMessage::NanoappListResponse,
                                     fbs::CreateNanoappListResponse(builder, list).Union(), 0);
    }
    return {builder.GetBufferPointer(), builder.GetBufferPointer() + builder.GetSize()};
}

void Decode(benchmark::State& state) {
    const std::vector<uint8_t> message = Message(state.range(0));
    IChreMessageHandlers handlers;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
                HostProtocolHost::decodeMessageFromChre(message.data(), message.size(), handlers));
    }
}
BENCHMARK(Decode)->ArgName("bytes")->Arg(0)->Arg(16)->Arg(4096);

void LibraryVerifyAndUnpack(benchmark::State& state) {
    const std::vector<uint8_t> message = Message(state.range(0));
    for (auto _ : state) {
        flatbuffers::Verifier verifier(message.data(), message.size());
        if (!fbs::VerifyMessageContainerBuffer(verifier)) continue;
        benchmark::DoNotOptimize(fbs::UnPackMessageContainer(message.data()));
    }
}
BENCHMARK(LibraryVerifyAndUnpack)->ArgName("bytes")->Arg(0)->Arg(16)->Arg(4096);

}  // namespace
}  // namespace android::chre

BENCHMARK_MAIN();
