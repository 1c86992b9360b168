#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "host_messages_generated.h"

// The context hub's datagrams as either end sends them, built by the schema alone.

using Bytes = std::vector<uint8_t>;

inline constexpr uint64_t kBlackBox = 0x4E6F727665001025;
inline constexpr uint16_t kEndpoint = 0x9023;

// Blanks between the digits are skipped.
Bytes FromHex(std::string digits);
Bytes Le(uint64_t value, size_t width = 4);
Bytes operator+(Bytes left, const Bytes& right);

template <typename Message>
Bytes Datagram(Message&& message) {
    chre::fbs::MessageContainerT container;
    container.message.Set(std::forward<Message>(message));
    container.host_addr = std::make_unique<chre::fbs::HostAddress>(0);
    flatbuffers::FlatBufferBuilder builder;
    builder.Finish(chre::fbs::MessageContainer::Pack(builder, &container));
    return {builder.GetBufferPointer(), builder.GetBufferPointer() + builder.GetSize()};
}

// To the black box or from it.
Bytes Message(uint32_t type, const Bytes& payload, uint16_t endpoint = kEndpoint,
              uint64_t nanoapp = kBlackBox);
// Of nanoapps and whether they are enabled.
Bytes List(const std::vector<std::pair<uint64_t, bool>>& nanoapps);
// Timestamps by sensor type.
Bytes SnapshotReply(uint32_t fragments, uint8_t cookie,
                    const std::vector<std::pair<uint8_t, uint64_t>>& timestamps);
// The payload of a message of type 5.
Bytes Piece(uint8_t sensor, uint8_t cookie, uint32_t total, uint32_t offset, uint32_t length,
            const Bytes& data);
