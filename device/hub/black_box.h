#pragma once

#include <atomic>
#include <cstdint>
#include <span>

#include "channel.h"
#include "datagram.h"
#include "recording.h"

// The sensor black box: the nanoapp that keeps what the sensors saw last. One object is one
// client's exchange with it: the client takes a snapshot, and then fetches its fragments one by
// one.
class BlackBox {
  public:
    static constexpr uint64_t kAppId = 0x4E6F727665001025;

    // All outlive the exchange; `snapshots` counts those of all clients.
    BlackBox(const Recording& recording, std::atomic<uint32_t>& snapshots, Channel& channel)
        : recording_(recording), snapshots_(snapshots), channel_(channel) {}

    // One message to the nanoapp; its answers go to `from`.
    void Receive(const Address& from, uint32_t type, std::span<const uint8_t> payload);

  private:
    struct Request;
    static const Request kRequests[];

    void CountSensors(const Address& from, std::span<const uint8_t> payload);
    void TakeSnapshot(const Address& from, std::span<const uint8_t> payload);
    void GetFragment(const Address& from, std::span<const uint8_t> payload);
    void SendPiece(const Address& to, const Recording::Piece& piece);

    std::span<const SensorBuffer> sensors() const;

    const Recording& recording_;
    std::atomic<uint32_t>& snapshots_;
    Channel& channel_;
    uint8_t cookie_ = 0;      // of this client's snapshot; 0 before the first
    uint32_t fragments_ = 0;  // in it
};
