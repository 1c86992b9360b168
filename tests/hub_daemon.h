#pragma once

#include <android-base/unique_fd.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <string>
#include <string_view>

#include "hub_messages.h"

// The context hub daemon's end of the link, as raw as it gets: a socket of the wearable's, and one
// client at a time. No wait is longer than a minute.
class HubDaemon {
  public:
    explicit HubDaemon(const std::string& name, int backlog = 8);
    ~HubDaemon();

    static int Socket(int flags = 0);
    const sockaddr* Address() const { return reinterpret_cast<const sockaddr*>(&address_); }

    void Accept();
    void HangUp() { peer_.reset(); }

    // False when nobody is there any more.
    bool Send(std::string_view datagram) const;
    bool Send(const Bytes& datagram) const {
        return Send({reinterpret_cast<const char*>(datagram.data()), datagram.size()});
    }
    // The next datagram, "" when the client has hung up.
    std::string Receive() const;

  private:
    const android::base::unique_fd listener_;
    android::base::unique_fd peer_;
    sockaddr_un address_{AF_UNIX, {}};
};
