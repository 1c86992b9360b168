#pragma once

#include <flatbuffers/flatbuffers.h>

#include <cstddef>
#include <cstdint>

#include "host_protocol_common.h"

namespace android::chre {

// Takes what a received datagram holds. What is passed is valid only during the call.
class IChreMessageHandlers {
  public:
    virtual ~IChreMessageHandlers() = default;

    virtual void handleNanoappMessage(const ::chre::fbs::NanoappMessageT& /*message*/) {}
    virtual void handleHubInfoResponse(const ::chre::fbs::HubInfoResponseT& /*response*/) {}
    virtual void handleNanoappListResponse(const ::chre::fbs::NanoappListResponseT& /*response*/) {}
    virtual void handleLoadNanoappResponse(const ::chre::fbs::LoadNanoappResponseT& /*response*/) {}
    virtual void handleUnloadNanoappResponse(
            const ::chre::fbs::UnloadNanoappResponseT& /*response*/) {}
    virtual void handleLogMessage13(const ::chre::fbs::LogMessage13T& /*message*/) {}
    virtual void handleDebugDumpResponse(const ::chre::fbs::DebugDumpResponseT& /*response*/) {}
    virtual void handleSelfTestResponse(const ::chre::fbs::SelfTestResponseT& /*response*/) {}
    // Any other number, 0 and unknown ones included. Whether the message counts as decoded.
    virtual bool handleOtherMessage(const ::chre::fbs::MessageContainerT& /*container*/) {
        return false;
    }
    // Members that are passed on undecoded: the whole datagram.
    virtual void handleRawMessage(const void* /*data*/, size_t /*length*/) {}
};

class HostProtocolHost {
  public:
    // Encodes the request for the list of nanoapps and finishes the buffer.
    static void encodeNanoappListRequest(flatbuffers::FlatBufferBuilder& builder);

    // Verifies the datagram, unpacks it and calls the handler that its union number stands for.
    // False when it is no valid message, or when the fallback handler says so. `data` must be
    // aligned like any heap memory. Throws std::bad_alloc: a few kilobytes can name one table many
    // thousand times, and each name becomes an object of its own.
    static bool decodeMessageFromChre(const void* data, size_t length,
                                      IChreMessageHandlers& handlers);
};

}  // namespace android::chre
