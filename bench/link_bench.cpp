// What the context hub link costs beside the least that could do its work, a bare sequenced-packet
// socket with epoll.

#include <benchmark/benchmark.h>
#include <cutils/sockets.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <semaphore>
#include <thread>
#include <vector>

#include "socket_client.h"

namespace android::chre {
namespace {

constexpr size_t kSize = 256;
constexpr size_t kLargest = 32768;
constexpr int kBatch = 1000;

// Where the scheduler puts two threads that take turns decides more than what they do: all run on
// one processor, the first of those that this process may use.
const bool g_pinned = [] {
    cpu_set_t cpus;
    sched_getaffinity(0, sizeof cpus, &cpus);
    int first = 0;
    while (!CPU_ISSET(first, &cpus)) ++first;
    CPU_ZERO(&cpus);
    CPU_SET(first, &cpus);
    return sched_setaffinity(0, sizeof cpus, &cpus) == 0;
}();

int Socket() {
    return socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
}

// Serves one client from a thread of its own until that hangs up: sends every datagram back, or,
// for one of one byte, a batch of datagrams.
class Daemon {
  public:
    static constexpr char kName[] = "link_bench";

    Daemon() {
        constexpr sockaddr_un kAddress{AF_UNIX, "/dev/socket/link_bench"};
        unlink(kAddress.sun_path);
        if (bind(listener_, reinterpret_cast<const sockaddr*>(&kAddress), sizeof kAddress) != 0 ||
            listen(listener_, 1) != 0) {
            std::abort();
        }
        thread_ = std::thread([this] {
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
    void onConnected() override { finished_.release(); }
    void onMessageReceived(const void* data, uint32_t length) override {
        if (--left_ == 0) {
            finished_.release();
        } else if (round_trips_) {
            client_.sendMessage(data, length);
        }
    }
    void Batch() {
        left_ = kBatch;
        const char message[kSize] = {};
        client_.sendMessage(message, round_trips_ ? sizeof message : 1);
        WaitForFinish();
    }
    void WaitForFinish() { finished_.acquire(); }

  private:
    SocketClient& client_;
    const bool round_trips_;
    int left_ = 0;
    std::binary_semaphore finished_{0};
};

void Link(benchmark::State& state, bool round_trips) {
    const Daemon daemon;
    SocketClient client;
    auto* const counter = new Counter(client, round_trips);
    const sp<SocketClient::ICallbacks> callbacks(counter);
    client.connectInBackground(Daemon::kName, callbacks);
    counter->WaitForFinish();
    for (auto _ : state) counter->Batch();
    client.disconnect();
}
BENCHMARK_CAPTURE(Link, round_trips, true)->UseRealTime();
BENCHMARK_CAPTURE(Link, datagrams, false)->UseRealTime();

void Bare(benchmark::State& state, bool round_trips) {
    const Daemon daemon;
    const int fd = Socket();
    constexpr int kSendBuffer = 0x200000;  // the link's
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
    socket_local_client_connect(fd, Daemon::kName, ANDROID_SOCKET_NAMESPACE_RESERVED,
                                SOCK_SEQPACKET);
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
BENCHMARK_CAPTURE(Bare, round_trips, true)->UseRealTime();
BENCHMARK_CAPTURE(Bare, datagrams, false)->UseRealTime();

}  // namespace
}  // namespace android::chre
