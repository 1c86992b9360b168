#include "datagram.h"

#include <algorithm>
#include <vector>

#include "host_messages_generated.h"

namespace fbs = chre::fbs;

namespace {

template <typename T>
flatbuffers::DetachedBuffer Finish(flatbuffers::FlatBufferBuilder& builder, uint16_t client_id,
                                   flatbuffers::Offset<T> message) {
    const fbs::HostAddress host(client_id);
    builder.Finish(fbs::CreateMessageContainer(builder, fbs::ChreMessageTraits<T>::enum_value,
                                               message.Union(), &host));
    return builder.Release();
}

}  // namespace

flatbuffers::DetachedBuffer EncodeNanoappList(uint16_t client_id,
                                              std::span<const NanoappEntry> nanoapps) {
    flatbuffers::FlatBufferBuilder builder;
    std::vector<flatbuffers::Offset<fbs::NanoappListEntry>> entries;
    for (const NanoappEntry& one : nanoapps) {
        entries.push_back(
                fbs::CreateNanoappListEntry(builder, one.app_id, one.version, one.enabled));
    }
    return Finish(builder, client_id,
                  fbs::CreateNanoappListResponse(builder, builder.CreateVector(entries)));
}

flatbuffers::DetachedBuffer EncodeNanoappMessage(const Address& address, uint32_t type,
                                                 std::span<const uint8_t> head,
                                                 std::span<const uint8_t> tail) {
    constexpr size_t kAround = 128;  // more than the tables take
    flatbuffers::FlatBufferBuilder builder(head.size() + tail.size() + kAround);
    uint8_t* bytes = nullptr;
    const auto payload = builder.CreateUninitializedVector(head.size() + tail.size(), &bytes);
    std::ranges::copy(tail, std::ranges::copy(head, bytes).out);
    return Finish(builder, address.client_id,
                  fbs::CreateNanoappMessage(builder, address.app_id, type, address.host_endpoint,
                                            payload));
}
