#pragma once

#include <atomic>
#include <cstdint>
#include <span>

#include "black_box.h"
#include "channel.h"
#include "recording.h"

// What all clients share.
struct Hub {
    Recording recording;
    std::atomic<uint32_t> snapshots = 0;  // taken of it
};

// The hub's side of one connection: takes datagrams, of which nothing is trusted, and sends the
// answers through the channel. What it can't make sense of is ignored, with a line on standard
// error.
class Conversation {
  public:
    // All outlive the conversation.
    Conversation(Hub& hub, Channel& channel)
        : channel_(channel), black_box_(hub.recording, hub.snapshots, channel) {}

    // The bytes are aligned like any heap memory.
    void Receive(std::span<const uint8_t> datagram);

  private:
    void ListNanoapps(uint16_t client_id);
    bool BlackBoxRuns() const;

    Channel& channel_;
    BlackBox black_box_;
};
