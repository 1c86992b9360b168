#pragma once

#include <flatbuffers/flatbuffers.h>

#include <cstddef>
#include <cstdint>
#include <span>

// What the hub says, as datagrams of its socket: each is one flatbuffer, a MessageContainer.

// The most bytes that a datagram may have, in either direction: clients read no more.
inline constexpr size_t kMostDatagram = 32768;

// From which nanoapp to whom.
struct Address {
    uint64_t app_id;
    uint16_t client_id;
    uint16_t host_endpoint;
};

struct NanoappEntry {
    uint64_t app_id;
    uint32_t version;
    bool enabled;
};

flatbuffers::DetachedBuffer EncodeNanoappList(uint16_t client_id,
                                              std::span<const NanoappEntry> nanoapps);

// The payload is the two spans' bytes, one after the other.
flatbuffers::DetachedBuffer EncodeNanoappMessage(const Address& address, uint32_t type,
                                                 std::span<const uint8_t> head,
                                                 std::span<const uint8_t> tail = {});
