#pragma once

#include <flatbuffers/flatbuffers.h>

#include <cstddef>
#include <cstdint>

#include "host_messages_generated.h"

namespace chre {

// What both ends of the context hub daemon's socket share: every datagram is one flatbuffer whose
// root is a MessageContainer, little-endian, without file identifier or size prefix.
class HostProtocolCommon {
  public:
    // Encodes one message to or from a nanoapp and finishes the buffer. The payload is copied; null
    // is allowed with a size of 0, which gives an empty payload and never an absent one.
    static void encodeNanoappMessage(flatbuffers::FlatBufferBuilder& builder, uint64_t appId,
                                     uint32_t messageType, uint16_t hostEndpoint,
                                     const void* payload, size_t payloadSize, uint32_t firstWord,
                                     uint32_t secondWord, bool firstFlag, bool secondFlag,
                                     uint32_t thirdWord);

    // Wraps the message in its container and finishes the buffer.
    static void finalize(flatbuffers::FlatBufferBuilder& builder, fbs::ChreMessage type,
                         flatbuffers::Offset<void> message, uint16_t hostClientId);

    // Whether the bytes are a container that may be read: every offset inside, what is required
    // there. A union number that the schema doesn't know is valid. Null is not.
    static bool verifyMessage(const void* data, size_t length);
};

}  // namespace chre
