#include "hub_daemon.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>

#include "processes.h"

HubDaemon::HubDaemon(const std::string& name, int backlog) : listener_(Socket()) {
    ("/dev/socket/" + name).copy(address_.sun_path, sizeof address_.sun_path - 1);
    unlink(address_.sun_path);
    EXPECT_EQ(bind(listener_.get(), Address(), sizeof address_), 0);
    EXPECT_EQ(listen(listener_.get(), backlog), 0);
}

HubDaemon::~HubDaemon() {
    unlink(address_.sun_path);
}

int HubDaemon::Socket(int flags) {
    return Bounded(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | flags, 0));
}

void HubDaemon::Accept() {
    peer_.reset(Bounded(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC)));
}

bool HubDaemon::Send(std::string_view datagram) const {
    return send(peer_.get(), datagram.data(), datagram.size(), MSG_NOSIGNAL) > 0;
}

std::string HubDaemon::Receive() const {
    std::string datagram(300'000, '\0');
    const ssize_t size = recv(peer_.get(), datagram.data(), datagram.size(), 0);
    datagram.resize(static_cast<size_t>(std::max<ssize_t>(size, 0)));
    return datagram;
}
