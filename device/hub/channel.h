#pragma once

#include <flatbuffers/flatbuffers.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <random>

#include "faults.h"

// What waits to be sent to one client, and when: an answer is never written where it is made, so
// that neither a slow client nor a fault that takes time holds up the others.
class Channel {
  public:
    using Clock = std::chrono::steady_clock;

    // `number` names the client to people. The plan outlives the channel.
    Channel(unsigned number, const FaultPlan& plan) : number_(number), faults_(plan) {}

    Faults& faults() { return faults_; }

    // To be asked once for each message that has come. False when it shall stay without an answer.
    bool Passes(Message message);

    // Queues one message; drops it when the client shall hear no more.
    void Send(Message message, flatbuffers::DetachedBuffer bytes);

    // Sends what is due, without blocking. False when the connection is to be closed.
    bool Flush(int fd);

    // Nothing more is to be read from this client; what is queued already still goes out.
    bool hung() const { return silent_; }
    // The socket's buffer is full: flush when it can be written to.
    bool blocked() const { return blocked_; }
    // When to flush next for what isn't due yet; max() when there is no need.
    Clock::time_point due() const;

    // One line on standard error about this client.
    void Say(const char* format, ...) const __attribute__((__format__(printf, 2, 3)));

  private:
    struct Pending {
        Clock::time_point due;
        flatbuffers::DetachedBuffer bytes;  // none: hang up
    };

    void Queue(flatbuffers::DetachedBuffer bytes);
    void QueueGarbage();

    const unsigned number_;
    Faults faults_;
    std::mt19937_64 random_;  // the same on every connection
    std::deque<Pending> pending_;
    size_t pending_bytes_ = 0;
    bool silent_ = false;
    bool blocked_ = false;
    bool overflown_ = false;
};
