#pragma once

#include <cstdint>
#include <span>

#include "black_box.h"
#include "channel.h"
#include "recording.h"

// What all clients share.
struct Hub {
    Recording recording;
    uint8_t cookie = 0;  // the last one given
};

// The hub's side of one connection: takes datagrams, of which nothing is trusted, and puts the
// answers into the channel. What it can't make sense of is ignored, with a line on standard error.
class Conversation {
  public:
    // All outlive the conversation.
    Conversation(Hub& hub, Channel& channel)
        : channel_(channel), black_box_(hub.recording, hub.cookie, channel) {}

    // The bytes are aligned like any heap memory.
    void Receive(std::span<const uint8_t> datagram);

  private:
    void ListNanoapps(uint16_t client_id);
    bool BlackBoxRuns() const;

    Channel& channel_;
    BlackBox black_box_;
};
