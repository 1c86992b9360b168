#pragma once

#include <android-base/unique_fd.h>

#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "channel.h"
#include "conversation.h"
#include "faults.h"

// Serves any number of clients, on the calling thread, from one epoll loop that never waits for any
// one of them.
class Server {
  public:
    struct Misbehaviour {
        FaultPlan plan;
        uint32_t clients = std::numeric_limits<uint32_t>::max();  // the first so many meet it
    };

    // The listening socket doesn't block, and outlives the server, as the other two do.
    Server(int listener, Hub& hub, const Misbehaviour& misbehaviour);

    // Serves until `stop` can be read. "" or the sentence for why it can't go on.
    std::string Run(int stop);

  private:
    struct Client {
        Client(android::base::unique_fd socket, unsigned number, Hub& hub, const FaultPlan& plan)
            : fd(std::move(socket)), channel(number, plan), conversation(hub, channel) {}

        android::base::unique_fd fd;
        Channel channel;
        Conversation conversation;
        uint32_t watched = 0;  // the events that epoll tells of
    };
    using Clients = std::map<int, std::unique_ptr<Client>>;

    bool Watch(int operation, int fd, uint32_t events);
    void Listen(bool on);
    void Accept();
    bool Serve(Client& client, uint32_t events);
    bool Receive(Client& client, bool peer_closed);
    bool Flush(Client& client);
    void FlushDue();
    int Patience() const;
    void Drop(Clients::iterator client);

    const int listener_;
    Hub& hub_;
    const Misbehaviour& misbehaviour_;
    const FaultPlan well_behaved_;
    android::base::unique_fd epoll_;
    bool listening_ = false;
    unsigned accepted_ = 0;
    Clients clients_;  // by descriptor
    std::vector<uint8_t> buffer_;
};
