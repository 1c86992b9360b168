#include "conversation.h"

#include <cinttypes>
#include <vector>

#include "datagram.h"
#include "host_messages_generated.h"

namespace fbs = chre::fbs;

namespace {

constexpr NanoappEntry kNanoapps[] = {
        {0x4E6F727665001001, 0x00020300, true},  // steps and activity
        {0x4E6F727665001004, 0x00010107, true},  // gestures
        {0x4E6F727665001012, 0x00040000, true},  // on-wrist detection
        {BlackBox::kAppId, 0x00010002, true},
        {0x4E6F727665001031, 0x00000900, false},  // sleep, which waits for its setting
        {0x4E6F727665001040, 0x00030001, true},   // location batching
};

}  // namespace

void Conversation::Receive(std::span<const uint8_t> datagram) {
    if (!channel_.Passes(Message::kReceived)) return;
    flatbuffers::Verifier verifier(datagram.data(), datagram.size());
    if (!fbs::VerifyMessageContainerBuffer(verifier)) {
        channel_.Say("a datagram of %zu bytes that holds no message; ignored", datagram.size());
        return;
    }
    const fbs::MessageContainer& container = *fbs::GetMessageContainer(datagram.data());
    const uint16_t client_id = container.host_addr()->client_id();
    if (container.message_type() == fbs::ChreMessage::NanoappListRequest) {
        ListNanoapps(client_id);
        return;
    }
    const fbs::NanoappMessage* const message = container.message_as_NanoappMessage();
    if (message == nullptr) {
        channel_.Say("a message of union number %d, which this hub doesn't serve; ignored",
                     static_cast<int>(container.message_type()));
        return;
    }
    if (message->app_id() != BlackBox::kAppId || !BlackBoxRuns()) {
        channel_.Say("a message to nanoapp 0x%" PRIX64 ", which takes none; ignored",
                     message->app_id());
        return;
    }
    black_box_.Receive({message->app_id(), client_id, message->host_endpoint()},
                       message->message_type(),
                       {message->message()->data(), message->message()->size()});
}

bool Conversation::BlackBoxRuns() const {
    const FaultPlan& plan = channel_.faults().plan();
    return !plan.absent && !plan.disabled;
}

void Conversation::ListNanoapps(uint16_t client_id) {
    if (!channel_.Passes(Message::kListRequest)) return;
    std::vector<NanoappEntry> listed;
    for (NanoappEntry one : kNanoapps) {
        if (one.app_id == BlackBox::kAppId) {
            if (channel_.faults().plan().absent) continue;
            one.enabled = BlackBoxRuns();
        }
        listed.push_back(one);
    }
    channel_.Send(Message::kListResponse, EncodeNanoappList(client_id, listed));
}
