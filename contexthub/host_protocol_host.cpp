#include "host_protocol_host.h"

#include <memory>

namespace android::chre {

namespace fbs = ::chre::fbs;
using ::chre::HostProtocolCommon;

void HostProtocolHost::encodeNanoappListRequest(flatbuffers::FlatBufferBuilder& builder) {
    const auto request = fbs::CreateNanoappListRequest(builder);
    HostProtocolCommon::finalize(builder, fbs::ChreMessage::NanoappListRequest, request.Union(), 0);
}

bool HostProtocolHost::decodeMessageFromChre(const void* data, size_t length,
                                             IChreMessageHandlers& handlers) {
    if (!HostProtocolCommon::verifyMessage(data, length)) return false;
    const std::unique_ptr<const fbs::MessageContainerT> container(
            flatbuffers::GetRoot<fbs::MessageContainer>(data)->UnPack());
    const fbs::ChreMessageUnion& message = container->message;
    // What is verified has its message: none of the pointers below is null.
    switch (message.type) {
        case fbs::ChreMessage::NanoappMessage:
            handlers.handleNanoappMessage(*message.AsNanoappMessage());
            return true;
        case fbs::ChreMessage::HubInfoResponse:
            handlers.handleHubInfoResponse(*message.AsHubInfoResponse());
            return true;
        case fbs::ChreMessage::NanoappListResponse:
            handlers.handleNanoappListResponse(*message.AsNanoappListResponse());
            return true;
        case fbs::ChreMessage::LoadNanoappResponse:
            handlers.handleLoadNanoappResponse(*message.AsLoadNanoappResponse());
            return true;
        case fbs::ChreMessage::UnloadNanoappResponse:
            handlers.handleUnloadNanoappResponse(*message.AsUnloadNanoappResponse());
            return true;
        case fbs::ChreMessage::LogMessage13:
            handlers.handleLogMessage13(*message.AsLogMessage13());
            return true;
        case fbs::ChreMessage::DebugDumpResponse:
            handlers.handleDebugDumpResponse(*message.AsDebugDumpResponse());
            return true;
        case fbs::ChreMessage::SelfTestResponse:
            handlers.handleSelfTestResponse(*message.AsSelfTestResponse());
            return true;
        case fbs::ChreMessage::BtSocketOpenResponse:
        case fbs::ChreMessage::BtSocketClose:
        case fbs::ChreMessage::BtSocketCapabilitiesResponse:
            handlers.handleRawMessage(data, length);
            return true;
        default:
            return handlers.handleOtherMessage(*container);
    }
}

}  // namespace android::chre
