#include "black_box.h"

#include <algorithm>
#include <cinttypes>
#include <iterator>
#include <vector>

namespace {

// What the nanoapp sends, in its own numbering.
enum ReplyType : uint32_t {
    kSnapshotReply = 2,
    kFragmentDone = 4,
    kFragmentData = 5,
    kSensorCountReply = 7,
};

template <typename T>
void Put(std::vector<uint8_t>& payload, T value) {
    for (size_t i = 0; i < sizeof value; ++i) {
        payload.push_back(static_cast<uint8_t>(value >> (8 * i)));
    }
}

uint32_t GetU32(std::span<const uint8_t> payload, size_t at) {
    uint32_t value = 0;
    for (size_t i = 0; i < sizeof value; ++i) value |= uint32_t{payload[at + i]} << (8 * i);
    return value;
}

}  // namespace

struct BlackBox::Request {
    uint32_t type;
    Message message;
    size_t size;  // of the payload
    bool may_be_empty;
    void (BlackBox::*answer)(const Address& from, std::span<const uint8_t> payload);
};

const BlackBox::Request BlackBox::kRequests[] = {
        {1, Message::kSnapshotRequest, 4, true, &BlackBox::TakeSnapshot},
        {3, Message::kFragmentRequest, 8, false, &BlackBox::GetFragment},
        {6, Message::kCountRequest, 0, true, &BlackBox::CountSensors},
};

void BlackBox::Receive(const Address& from, uint32_t type, std::span<const uint8_t> payload) {
    const auto* const request = std::ranges::find(kRequests, type, &Request::type);
    if (request == std::end(kRequests)) {
        channel_.Say("the black box knows no message of type %" PRIu32 "; ignored", type);
        return;
    }
    if (!channel_.Passes(request->message)) return;
    if (payload.size() != request->size && !(payload.empty() && request->may_be_empty)) {
        channel_.Say("a message of type %" PRIu32
                     " to the black box with %zu bytes, not %zu; "
                     "ignored",
                     type, payload.size(), request->size);
        return;
    }
    (this->*request->answer)(from, payload);
}

std::span<const SensorBuffer> BlackBox::sensors() const {
    return channel_.faults().plan().no_sensors ? std::span<const SensorBuffer>()
                                               : recording_.sensors();
}

void BlackBox::CountSensors(const Address& from, std::span<const uint8_t> /*payload*/) {
    std::vector<uint8_t> count;
    Put(count, static_cast<uint32_t>(sensors().size()));
    channel_.Send(Message::kCountReply, EncodeNanoappMessage(from, kSensorCountReply, count));
}

void BlackBox::TakeSnapshot(const Address& from, std::span<const uint8_t> payload) {
    cookie_ = static_cast<uint8_t>(1 + snapshots_++ % UINT8_MAX);
    fragments_ = sensors().empty() ? 0 : recording_.fragments();
    if (payload.empty()) {
        channel_.Say("snapshot of %" PRIu32 " fragments, cookie %d", fragments_, cookie_);
    } else {
        channel_.Say("snapshot of %" PRIu32 " fragments, cookie %d, for id %" PRId32, fragments_,
                     cookie_, static_cast<int32_t>(GetU32(payload, 0)));
    }
    std::vector<uint8_t> reply;
    Put(reply, fragments_);
    Put(reply, cookie_);
    const uint64_t now = NanosSinceBoot();
    for (const SensorBuffer& sensor : sensors()) {
        Put(reply, sensor.type);
        Put(reply, now - sensor.age_ns);
    }
    channel_.Send(Message::kSnapshotReply, EncodeNanoappMessage(from, kSnapshotReply, reply));
}

void BlackBox::GetFragment(const Address& from, std::span<const uint8_t> payload) {
    const uint32_t index = GetU32(payload, 0);
    const uint32_t count = GetU32(payload, 4);
    if (count != 1 || index >= fragments_) {
        channel_.Say("a request for %" PRIu32 " fragments from %" PRIu32 " on, of %" PRIu32
                     " that can be had one by one; ignored",
                     count, index, fragments_);
        return;
    }
    for (const Recording::Piece& piece : recording_.fragment(index)) SendPiece(from, piece);
    channel_.Send(Message::kFragmentDone, EncodeNanoappMessage(from, kFragmentDone, {}));
}

void BlackBox::SendPiece(const Address& to, const Recording::Piece& piece) {
    const SensorBuffer& sensor = recording_.sensors()[piece.sensor];
    const std::span<const uint8_t> bytes(sensor.bytes);
    DataPiece sent{cookie_, bytes.subspan(piece.offset, piece.length)};
    channel_.faults().Distort(sent);
    std::vector<uint8_t> head;
    Put(head, sensor.type);
    Put(head, sent.cookie);
    Put(head, static_cast<uint32_t>(bytes.size()));
    Put(head, piece.offset);
    Put(head, piece.length);
    for (int copy = 0; copy < sent.copies; ++copy) {
        channel_.Send(Message::kFragmentData,
                      EncodeNanoappMessage(to, kFragmentData, head, sent.data));
    }
}
