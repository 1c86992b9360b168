#pragma once

#include <flatbuffers/flatbuffers.h>

#include "faults.h"

// The way to one client, on that client's thread: sending waits for it, as long as it takes.
class Channel {
  public:
    // `number` names the client to people. The socket stays the caller's; it and the plan outlive
    // the channel.
    Channel(int fd, unsigned number, const FaultPlan& plan)
        : fd_(fd), number_(number), faults_(plan) {}

    Faults& faults() { return faults_; }

    // False once the connection is to be closed.
    bool open() const { return open_; }

    // To be asked once for each message that has come. False when it shall stay without an answer;
    // a client that is left hanging has then gone.
    bool Passes(Message message);

    // Sends one message, unless the client shall hear no more.
    void Send(Message message, const flatbuffers::DetachedBuffer& bytes);

    // Waits so long, for ever when it is negative, for the client to close its end.
    bool PeerLeaves(int patience_ms) const;

    // One line on standard error about this client.
    void Say(const char* format, ...) const __attribute__((__format__(printf, 2, 3)));

  private:
    const int fd_;
    const unsigned number_;
    Faults faults_;
    bool open_ = true;
};
