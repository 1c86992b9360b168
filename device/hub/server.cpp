#include "server.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <utility>

#include "datagram.h"

using android::base::unique_fd;

namespace {

// When no more clients can be taken, for want of descriptors or memory.
constexpr int kPauseMillis = 100;

}  // namespace

Server::Server(int listener, Hub& hub, const Misbehaviour& misbehaviour)
    : listener_(listener),
      hub_(hub),
      misbehaviour_(misbehaviour),
      epoll_(epoll_create1(EPOLL_CLOEXEC)),
      buffer_(kMostDatagram) {}

bool Server::Watch(int operation, int fd, uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.fd = fd;
    return epoll_ctl(epoll_.get(), operation, fd, &event) == 0;
}

void Server::Listen(bool on) {
    if (listening_ == on) return;
    listening_ = Watch(EPOLL_CTL_MOD, listener_, on ? EPOLLIN : 0U) == on;
}

std::string Server::Run(int stop) {
    if (!Watch(EPOLL_CTL_ADD, stop, EPOLLIN) || !Watch(EPOLL_CTL_ADD, listener_, EPOLLIN)) {
        return "cannot watch the socket: " + std::generic_category().message(errno);
    }
    listening_ = true;
    for (std::array<epoll_event, 64> events{};;) {
        const int count = epoll_wait(epoll_.get(), events.data(), events.size(), Patience());
        if (count < 0 && errno != EINTR) {
            return "cannot wait for messages: " + std::generic_category().message(errno);
        }
        if (count == 0) Listen(true);
        for (int i = 0; i < count; ++i) {
            const int fd = events.at(static_cast<size_t>(i)).data.fd;
            if (fd == stop) return "";
            if (fd == listener_) {
                Accept();
            } else if (const auto client = clients_.find(fd);
                       !Serve(*client->second, events.at(static_cast<size_t>(i)).events)) {
                Drop(client);
            }
        }
        FlushDue();
    }
}

void Server::Accept() {
    unique_fd fd(accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (fd.get() < 0) {
        if (errno == EAGAIN || errno == EINTR || errno == ECONNABORTED) return;
        std::fprintf(stderr, "contexthubd: cannot take one more client: %s\n",
                     std::strerror(errno));
        Listen(false);
        return;
    }
    const bool faulty = accepted_ < misbehaviour_.clients;
    const int key = fd.get();
    auto client = std::make_unique<Client>(std::move(fd), ++accepted_, hub_,
                                           faulty ? misbehaviour_.plan : well_behaved_);
    client->watched = EPOLLIN | EPOLLRDHUP;
    if (!Watch(EPOLL_CTL_ADD, key, client->watched)) {
        client->channel.Say("cannot watch it: %s", std::strerror(errno));
        return;
    }
    client->channel.Say("connected");
    clients_.emplace(key, std::move(client));
}

// False when the client is to be dropped, as below.
bool Server::Serve(Client& client, uint32_t events) {
    const bool peer_closed = (events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0;
    if (client.channel.hung()) {
        if (peer_closed) return false;
    } else if ((events & EPOLLIN) != 0) {
        // One datagram a turn, so that everybody's turn comes.
        if (!Receive(client, peer_closed)) return false;
    } else if (peer_closed) {
        return false;
    }
    return Flush(client);
}

bool Server::Receive(Client& client, bool peer_closed) {
    const ssize_t received = recv(client.fd.get(), buffer_.data(), buffer_.size(), MSG_TRUNC);
    if (received < 0) return errno == EAGAIN || errno == EINTR;
    // An empty datagram looks like the end, but doesn't come with it.
    if (received == 0 && peer_closed) return false;
    const auto size = static_cast<size_t>(received);
    if (size > buffer_.size()) {
        client.channel.Say("a datagram of %zu bytes, of which %zu are the most; ignored", size,
                           buffer_.size());
        return true;
    }
    client.conversation.Receive({buffer_.data(), size});
    return true;
}

bool Server::Flush(Client& client) {
    Channel& channel = client.channel;
    if (!channel.Flush(client.fd.get())) return false;
    const uint32_t wanted =
            EPOLLRDHUP | (channel.hung() ? 0U : EPOLLIN) | (channel.blocked() ? EPOLLOUT : 0U);
    if (wanted == client.watched) return true;
    client.watched = wanted;
    return Watch(EPOLL_CTL_MOD, client.fd.get(), wanted);
}

void Server::FlushDue() {
    if (misbehaviour_.plan.delay.count() == 0) return;  // nothing is ever left for later
    const auto now = Channel::Clock::now();
    for (auto client = clients_.begin(); client != clients_.end();) {
        const auto one = client++;
        if (one->second->channel.due() <= now && !Flush(*one->second)) Drop(one);
    }
}

// How long epoll may wait, in milliseconds.
int Server::Patience() const {
    int patience = listening_ ? -1 : kPauseMillis;
    if (misbehaviour_.plan.delay.count() == 0) return patience;
    auto due = Channel::Clock::time_point::max();
    for (const auto& [fd, client] : clients_) due = std::min(due, client->channel.due());
    if (due == Channel::Clock::time_point::max()) return patience;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - Channel::Clock::now());
    const int millis = static_cast<int>(std::clamp<int64_t>(left.count(), 0, 60'000));
    return patience < 0 ? millis : std::min(patience, millis);
}

void Server::Drop(Clients::iterator client) {
    client->second->channel.Say("gone");
    clients_.erase(client);
    Listen(true);
}
