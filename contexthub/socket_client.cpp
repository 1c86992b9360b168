#include "socket_client.h"

#include <android-base/unique_fd.h>
#include <cutils/sockets.h>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "host_log.h"

namespace android::chre {
namespace {

using android::base::unique_fd;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr size_t kReceiveBufferSize = 32768;
constexpr int kSendBufferSize = 0x200000;
constexpr timeval kSendTimeout{3, 0};

constexpr milliseconds kFirstDelay{250};
constexpr milliseconds kLongestDelay{4000};
constexpr int kAttemptsBeforeLongerDelays = 40;
constexpr int kMostAttempts = 2500;

// The client that the calling thread receives for, if it does.
thread_local const SocketClient* received_here = nullptr;

template <typename Call>
int Uninterrupted(Call call) {
    int result = -1;
    do {
        result = call();
    } while (result == -1 && errno == EINTR);
    return result;
}

// An epoll instance that waits for the socket's input, or none.
unique_fd WatchInput(int socket) {
    unique_fd epoll(Uninterrupted([] { return epoll_create1(EPOLL_CLOEXEC); }));
    if (epoll.get() == -1) {
        LOG_ERRNO("receiveThread", "Error creating epoll fd");
        return epoll;
    }
    epoll_event input{};
    // A device that is about to suspend stays up until the message is handled. The kernel overlooks
    // the flag where the process may not ask for that.
    input.events = EPOLLIN | EPOLLWAKEUP;
    if (Uninterrupted([&] { return epoll_ctl(epoll.get(), EPOLL_CTL_ADD, socket, &input); }) != 0) {
        LOG_ERRNO("receiveThread", "Error adding socket fd to epoll");
        epoll.reset();
    }
    return epoll;
}

}  // namespace

// The socket, if there is one, for a thread that is not the receive thread: as long as somebody has
// it the receive thread doesn't close it, so that its number can't become that of a file which
// another thread opens in that instant. The users are counted before the descriptor is read and the
// receive thread takes the descriptor away before it reads their number, so one of the two always
// sees the other.
class SocketClient::SocketInUse {
  public:
    explicit SocketInUse(SocketClient& client) : users_(client.socketUsers_) {
        ++users_;
        fd_ = client.socket_;
        if (fd_ == -1) letGo();
    }
    ~SocketInUse() {
        if (fd_ != -1) letGo();
    }
    SocketInUse(const SocketInUse&) = delete;
    SocketInUse& operator=(const SocketInUse&) = delete;

    int fd() const { return fd_; }

  private:
    void letGo() {
        if (--users_ == 0) users_.notify_all();
    }

    std::atomic<uint32_t>& users_;
    int fd_ = -1;
};

SocketClient::SocketClient()
    : SocketClient([](milliseconds delay) { return steady_clock::now() + delay; }) {}

SocketClient::SocketClient(Deadline deadline)
    : receiveBuffer_(kReceiveBufferSize), deadline_(std::move(deadline)) {}

SocketClient::~SocketClient() {
    if (onReceiveThread() && !callbacks_) {
        receiveThread_.detach();  // which ends with this: it has let go of who owned this client
    } else {
        // Refused within a callback, which would return into this client: the joinable thread then
        // ends the process.
        disconnect();
    }
}

bool SocketClient::connectInBackground(const char* socketName, const sp<ICallbacks>& callbacks) {
    return doConnect(socketName, callbacks, true);
}

bool SocketClient::doConnect(const char* socketName, const sp<ICallbacks>& callbacks,
                             bool background) {
    if (onReceiveThread()) {
        LOGE("doConnect", "Can't attempt to connect from a receive thread callback");
        return false;
    }
    const std::lock_guard lifecycle(lifecycleMutex_);
    if (receiveThread_.joinable()) {
        LOGW("doConnect", "Re-connecting socket with implicit disconnect");
        disconnect();
    }
    const size_t length = std::strlen(socketName);
    const size_t kept = std::min(length, socketName_.size() - 1);
    std::copy_n(socketName, kept, socketName_.begin());
    socketName_[kept] = '\0';
    if (length > kept) {
        LOGE("doConnect", "Socket name length parameter is too long (%zu, max %zu)", length,
             socketName_.size());
        return false;
    }
    if (!callbacks) {
        LOGE("doConnect", "Callbacks parameter must be provided");
        return false;
    }
    if (!background && !tryConnect(false)) return false;
    shuttingDown_ = false;
    callbacks_ = callbacks;
    try {
        receiveThread_ = std::thread(&SocketClient::receiveThread, this);
    } catch (...) {
        callbacks_.clear();
        if (socket_ != -1) closeSocket();
        throw;
    }
    return true;
}

void SocketClient::disconnect() {
    if (onReceiveThread()) {
        LOGE("disconnect", "disconnect() can't be called from a receive thread callback");
        return;
    }
    const std::lock_guard lifecycle(lifecycleMutex_);
    if (!receiveThread_.joinable()) return;
    {
        const std::lock_guard shutdown(shutdownMutex_);
        shuttingDown_ = true;
    }
    shutdownCondition_.notify_all();
    // Either the socket is there already and this wakes the receive thread, or that thread looks at
    // the flag after it has made it.
    if (const SocketInUse socket(*this); socket.fd() != -1) {
        if (shutdown(socket.fd(), SHUT_RDWR) != 0) {
            LOG_ERRNO("disconnect", "Couldn't shut down socket");
        }
    }
    LOGD("disconnect", "Waiting for RX thread to exit");
    receiveThread_.join();
}

bool SocketClient::sendMessage(const void* data, size_t length) {
    const SocketInUse socket(*this);
    if (socket.fd() == -1) {
        LOGW("sendMessage", "Tried sending a message, but don't have a valid socket handle");
        return false;
    }
    const ssize_t sent = send(socket.fd(), data, length, 0);
    if (sent < 0) {
        LOGE("sendMessage", "Failed to send %zu bytes of data: %s", length, std::strerror(errno));
    } else if (sent == 0) {
        LOGW("sendMessage", "Failed to send data; remote side disconnected");
    } else if (static_cast<size_t>(sent) != length) {
        LOGW("sendMessage", "Truncated packet, tried sending %zu bytes, only %zd went through",
             length, sent);
    } else {
        return true;
    }
    return false;
}

bool SocketClient::onReceiveThread() const {
    return received_here == this;
}

bool SocketClient::tryConnect(bool suppressErrorLogs) {
    const bool loud = !suppressErrorLogs;
    errno = 0;
    // Not blocking while it connects: a daemon that has stopped accepting makes a blocking connect
    // wait for the send time-out, and nothing but that would end the wait when a disconnect is
    // asked for. As it is, the attempt fails with the same error and the back-off tries again.
    unique_fd fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const auto set = [&fd](int option, const auto& value) {
        return setsockopt(fd.get(), SOL_SOCKET, option, &value, sizeof value) == 0;
    };
    const char* const name = socketName_.data();
    if (fd.get() == -1) {
        if (loud) LOGE("tryConnect", "Couldn't create local socket: %s", std::strerror(errno));
    } else if (!set(SO_SNDBUF, kSendBufferSize)) {
        if (loud) {
            LOGE("tryConnect", "Failed to set SO_SNDBUF to %d: %s", kSendBufferSize,
                 std::strerror(errno));
        }
    } else if (!set(SO_SNDTIMEO, kSendTimeout)) {
        if (loud) LOGE("tryConnect", "Failed to set SO_SNDTIMEO: %s", std::strerror(errno));
    } else if (socket_local_client_connect(fd.get(), name, ANDROID_SOCKET_NAMESPACE_RESERVED,
                                           SOCK_SEQPACKET) == -1) {
        if (loud) {
            LOGE("tryConnect", "Couldn't connect client socket to '%s': %s", name,
                 std::strerror(errno));
        }
    } else {
        fcntl(fd.get(), F_SETFL, fcntl(fd.get(), F_GETFL) & ~O_NONBLOCK);
        socket_ = fd.release();
        return true;
    }
    return false;
}

bool SocketClient::reconnect() {
    milliseconds delay = kFirstDelay;
    for (int attempt = 1; attempt <= kMostAttempts; ++attempt) {
        const steady_clock::time_point deadline = deadline_(delay);
        {
            std::unique_lock lock(shutdownMutex_);
            if (shutdownCondition_.wait_until(lock, deadline,
                                              [this] { return shuttingDown_.load(); })) {
                return false;
            }
        }
        const bool silent = delay == kFirstDelay;
        if (tryConnect(silent)) {
            LOGD("reconnect", "Successfully (re)connected");
            if (!shuttingDown_) callbacks_->onConnected();
            return true;
        }
        if (attempt > kAttemptsBeforeLongerDelays) delay = std::min(2 * delay, kLongestDelay);
        if (!silent) {
            LOGW("reconnect", "Failed to (re)connect, next try in %d ms",
                 static_cast<int>(delay.count()));
        }
    }
    return false;
}

void SocketClient::receiveThread() {
    received_here = this;
    while (!shuttingDown_ && (socket_ != -1 || reconnect()) && receiveWhileConnected()) {
    }
    // Connected by doConnect(), and told to end before this thread came to it.
    if (socket_ != -1) closeSocket();
    if (!shuttingDown_) callbacks_->onConnectionAbandoned();
    // Callbacks that own this client may take it along: nothing of it is touched after that.
    const sp<ICallbacks> last = std::move(callbacks_);
}

// False when there is no waiting for the socket, with which the thread ends. The socket is closed
// in either case.
bool SocketClient::receiveWhileConnected() {
    const unique_fd epoll = WatchInput(socket_);
    if (epoll.get() != -1) {
        while (!shuttingDown_ && receiveOne(epoll.get())) {
        }
    }
    closeSocket();
    return epoll.get() != -1;
}

// False when the connection is lost or no longer wanted.
bool SocketClient::receiveOne(int epollFd) {
    epoll_event event{};
    if (Uninterrupted([&] { return epoll_wait(epollFd, &event, 1, -1); }) < 0) {
        LOG_ERRNO("receiveThread", "Poll error");
        return false;
    }
    const ssize_t received = recv(socket_, receiveBuffer_.data(), receiveBuffer_.size(), 0);
    if (received > 0) {
        callbacks_->onMessageReceived(receiveBuffer_.data(), static_cast<uint32_t>(received));
        return true;
    }
    if (received < 0) LOG_ERRNO("receiveThread", "Exiting RX thread");
    if (shuttingDown_) return false;
    LOGI("receiveThread", "%s",
         received < 0 ? "Force onDisconnected" : "Socket disconnected on remote end");
    callbacks_->onDisconnected();
    return false;
}

void SocketClient::closeSocket() {
    // Taken away first: who looks from now on finds none. Who has it already is waited for.
    const int fd = socket_.exchange(-1);
    for (uint32_t users = socketUsers_; users != 0; users = socketUsers_) socketUsers_.wait(users);
    if (close(fd) != 0) LOG_ERRNO("receiveThread", "Couldn't close socket");
}

}  // namespace android::chre
