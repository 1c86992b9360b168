#include "server.h"

#include <android-base/unique_fd.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <iterator>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "channel.h"
#include "datagram.h"

using android::base::unique_fd;

namespace {

// -1 with errno where it can't be done.
unique_fd Listen(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    // Made beside and then moved, so that nobody finds it before it listens.
    const std::string beside = path + ".new";
    if (beside.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return {};
    }
    beside.copy(address.sun_path, beside.size());
    unlink(beside.c_str());
    unique_fd made(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (bind(made.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(made.get(), SOMAXCONN) != 0 || std::rename(beside.c_str(), path.c_str()) != 0) {
        return {};
    }
    return made;
}

unique_fd OpenSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set, signal);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    return unique_fd(signalfd(-1, &set, SFD_CLOEXEC));
}

void ServeClient(unique_fd fd, unsigned number, Hub& hub, const FaultPlan& plan) {
    Channel channel(fd.get(), number, plan);
    Conversation conversation(hub, channel);
    channel.Say("connected");
    for (std::vector<uint8_t> buffer(kMostDatagram); channel.open();) {
        const ssize_t received = recv(fd.get(), buffer.data(), buffer.size(), MSG_TRUNC);
        // An empty datagram looks like the end, but doesn't come with it.
        if (received < 0 || (received == 0 && channel.PeerLeaves(0))) break;
        const auto size = static_cast<size_t>(received);
        if (size <= buffer.size()) {
            conversation.Receive({buffer.data(), size});
        } else {
            channel.Say("a datagram of %zu bytes, of which %zu are the most; ignored", size,
                        buffer.size());
        }
    }
    channel.Say("gone");
}

// False when it has to wait for descriptors or memory.
bool Accept(int listener, unsigned number, Hub& hub, const FaultPlan& plan) {
    unique_fd fd(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
    if (fd.get() >= 0) {
        try {
            std::thread(ServeClient, std::move(fd), number, std::ref(hub), std::cref(plan))
                    .detach();
            return true;
        } catch (const std::system_error&) {
            errno = EAGAIN;
        }
    }
    std::fprintf(stderr, "contexthubd: cannot take one more client: %s\n", std::strerror(errno));
    return false;
}

}  // namespace

int Serve(const std::string& path, Hub& hub, const FaultPlan& plan) {
    const unique_fd stop = OpenSignals();
    const unique_fd listener = Listen(path);
    if (listener.get() < 0) {
        std::fprintf(stderr, "contexthubd: cannot listen at %s: %s\n", path.c_str(),
                     std::strerror(errno));
        return 1;
    }
    std::fprintf(stderr, "contexthubd: listening at %s\n", path.c_str());
    for (unsigned accepted = 0;;) {
        pollfd ready[] = {{stop.get(), POLLIN, 0}, {listener.get(), POLLIN, 0}};
        poll(ready, std::size(ready), -1);
        if (ready[0].revents != 0) return 0;
        if (Accept(listener.get(), accepted + 1, hub, plan)) {
            ++accepted;
        } else {
            poll(ready, 1, 100);
        }
    }
}
