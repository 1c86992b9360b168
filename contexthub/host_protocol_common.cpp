#include "host_protocol_common.h"

namespace chre {

void HostProtocolCommon::encodeNanoappMessage(flatbuffers::FlatBufferBuilder& builder,
                                              uint64_t appId, uint32_t messageType,
                                              uint16_t hostEndpoint, const void* payload,
                                              size_t payloadSize, uint32_t firstWord,
                                              uint32_t secondWord, bool firstFlag, bool secondFlag,
                                              uint32_t thirdWord) {
    const auto bytes = builder.CreateVector(static_cast<const uint8_t*>(payload), payloadSize);
    // The ids have the second word before the first.
    const auto message =
            fbs::CreateNanoappMessage(builder, appId, messageType, hostEndpoint, bytes, secondWord,
                                      firstWord, firstFlag, secondFlag, thirdWord);
    finalize(builder, fbs::ChreMessage::NanoappMessage, message.Union(), 0);
}

void HostProtocolCommon::finalize(flatbuffers::FlatBufferBuilder& builder, fbs::ChreMessage type,
                                  flatbuffers::Offset<void> message, uint16_t hostClientId) {
    const fbs::HostAddress address(hostClientId);
    builder.Finish(fbs::CreateMessageContainer(builder, type, message, &address));
}

bool HostProtocolCommon::verifyMessage(const void* data, size_t length) {
    // The verifier asserts, rather than checks, that the length fits its offsets.
    if (data == nullptr || length >= FLATBUFFERS_MAX_BUFFER_SIZE) return false;
    flatbuffers::Verifier verifier(static_cast<const uint8_t*>(data), length);
    return verifier.VerifyBuffer<fbs::MessageContainer>(nullptr);
}

}  // namespace chre
