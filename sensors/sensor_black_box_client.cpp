#include "sensor_black_box_client.h"

#include <android-base/properties.h>

#include <algorithm>
#include <array>
#include <new>

#include "little_endian.h"
#include "log.h"
#include "protect.h"
#include "record_text.h"
#include "report_writer.h"

namespace tev::dumpstate {
namespace {

enum MessageType : uint32_t {
    kSnapshotRequest = 1,
    kSnapshotReply = 2,
    kGetFragmentRequest = 3,
    kFragmentDone = 4,
    kFragmentData = 5,
    kSensorCountRequest = 6,
    kSensorCountReply = 7,
};

constexpr uint16_t kHostEndpoint = 0x9023;
constexpr uint16_t kEveryHostEndpoint = 0xFFFF;

constexpr size_t kBuilderBytes = 64;
constexpr uint32_t kUnusedWord = 0xFFFFFFFF;

constexpr char kSnapshotIdProperty[] = "dumpstate.last_id";
constexpr int32_t kNoSnapshotId = -1;

constexpr size_t kSensorCountBytes = 4;
constexpr size_t kSnapshotHeaderBytes = 5;
constexpr size_t kTimestampBytes = 9;

// What all buffers of a snapshot may come to. The nanoapp keeps its data in the hub's own memory,
// which is a few megabytes, so this refuses nothing real.
constexpr uint64_t kMostSnapshotBytes = uint64_t{32} << 20;

// As long as for ever, and a deadline that no clock of the system's is too narrow for.
constexpr std::chrono::seconds kLongestWait = std::chrono::years(10);

// One piece of a sensor's data.
struct Piece {
    static constexpr uint32_t kHeaderBytes = 14;

    explicit Piece(const std::vector<uint8_t>& payload)
        : sensor(payload[0]),
          cookie(payload[1]),
          total_bytes(LoadU32(&payload[2])),
          offset(LoadU32(&payload[6])),
          length(LoadU32(&payload[10])) {}

    // Neither can wrap.
    uint64_t End() const { return uint64_t{offset} + length; }
    uint64_t PayloadBytes() const { return uint64_t{kHeaderBytes} + length; }

    uint8_t sensor;
    uint8_t cookie;
    uint32_t total_bytes;
    uint32_t offset;
    uint32_t length;
};

const char* GetSensorName(uint8_t number) {
    const SensorType* const type = FindSensorType(number);
    return type == nullptr ? "(Unsupported)" : type->name;
}

// For messages that show a number as 32 bits: of a larger one, its low 32.
constexpr uint32_t Shown(uint64_t number) {
    return static_cast<uint32_t>(number);
}

}  // namespace

android::sp<SensorBlackBoxClient> SensorBlackBoxClient::start(uint64_t nanoapp_id,
                                                              const char* socket_name) {
    const android::sp<SensorBlackBoxClient> client(new SensorBlackBoxClient(nanoapp_id));
    SENSOR_LOG(INFO, "Connecting to CHRE");
    if (!client->socket_.connectInBackground(socket_name, client)) {
        SENSOR_LOG(ERROR, "Couldn't connect to CHRE socket");
        return {};
    }
    return client;
}

void SensorBlackBoxClient::onConnected() {
    protect(kLogTag, "onConnected", [this] {
        SENSOR_LOG(INFO, "Black box client connected to CHRE socket");
        flatbuffers::FlatBufferBuilder builder(kBuilderBytes);
        android::chre::HostProtocolHost::encodeNanoappListRequest(builder);
        if (!socket_.sendMessage(builder.GetBufferPointer(), builder.GetSize())) {
            SENSOR_LOG(ERROR, "Failed to send NanoappList request");
        }
    });
}

void SensorBlackBoxClient::onMessageReceived(const void* data, uint32_t length) {
    protect(kLogTag, "onMessageReceived", [this, data, length] {
        if (!android::chre::HostProtocolHost::decodeMessageFromChre(data, length, *this)) {
            SENSOR_LOG(ERROR, "Failed to decode message from CHRE");
        }
    });
}

void SensorBlackBoxClient::handleNanoappListResponse(
        const chre::fbs::NanoappListResponseT& response) {
    const auto found = std::ranges::find_if(response.nanoapps, [this](const auto& nanoapp) {
        return nanoapp->app_id == nanoapp_id_;
    });
    if (found == response.nanoapps.end()) {
        SENSOR_LOG(ERROR, "Sensor black box not found");
        return;
    }
    if (!(*found)->enabled) {
        SENSOR_LOG(ERROR, "Sensor black box not enabled");
        return;
    }
    SENSOR_LOG(INFO, "Requesting black box sensor count");
    if (!SendBlackBoxMessage(kSensorCountRequest, nullptr, 0)) {
        SENSOR_LOG(ERROR, "Failed to send kSensorCountRequest message to sensor black box");
    }
}

void SensorBlackBoxClient::handleNanoappMessage(const chre::fbs::NanoappMessageT& message) {
    const bool is_ours =
            message.app_id == nanoapp_id_ &&
            (message.host_endpoint == kHostEndpoint || message.host_endpoint == kEveryHostEndpoint);
    if (!is_ours) return;
    switch (message.message_type) {
        case kSnapshotReply:
            return handleSnapshotReply(message.message);
        case kFragmentDone:
            return handleFragmentDone();
        case kFragmentData:
            return handleFragmentData(message.message);
        case kSensorCountReply:
            return handleSensorCountReply(message.message);
        default:
            SENSOR_LOG(WARN, "Ignoring unsupported message type %d from black box",
                       static_cast<int>(message.message_type));
    }
}

void SensorBlackBoxClient::handleSensorCountReply(const Payload& payload) {
    {
        const std::lock_guard lock(mutex_);
        if (sensor_count_ != 0) return;
        if (payload.size() != kSensorCountBytes) {
            SENSOR_LOG(ERROR, "Unexpected message size for kSensorCountReply");
            return;
        }
        sensor_count_ = LoadU32(payload.data());
        if (sensor_count_ == 0) {
            SENSOR_LOG(WARN, "Sensor black box has no sensors configured.");
            return;
        }
        SENSOR_LOG(INFO, "Sensor black box has %u sensors.  Requesting snapshot creation.",
                   sensor_count_);
    }
    requestSnapshot();
}

void SensorBlackBoxClient::requestSnapshot() {
    const auto id = android::base::GetIntProperty<int32_t>(kSnapshotIdProperty, kNoSnapshotId);
    std::array<uint8_t, sizeof(id)> payload;
    StoreU32(payload.data(), static_cast<uint32_t>(id));
    size_t size = payload.size();
    if (id == kNoSnapshotId) {
        SENSOR_LOG(WARN, "Invalid value of dumpstate.last_id. Not sending a snapshot ID.");
        size = 0;
    } else {
        SENSOR_LOG(INFO, "Using snapshot ID: %d", id);
    }
    if (!SendBlackBoxMessage(kSnapshotRequest, payload.data(), size)) {
        SENSOR_LOG(ERROR, "Failed to send kSnapshotRequest message to sensor black box");
    }
}

void SensorBlackBoxClient::handleSnapshotReply(const Payload& payload) {
    if (payload.size() < kSnapshotHeaderBytes ||
        (payload.size() - kSnapshotHeaderBytes) % kTimestampBytes != 0) {
        SENSOR_LOG(ERROR, "Unexpected message size for kSnapshotReply (%zu - %zu) %% %zu != 0",
                   payload.size(), kSnapshotHeaderBytes, kTimestampBytes);
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        fragment_count_ = LoadU32(payload.data());
        cookie_ = payload[4];
        SENSOR_LOG(INFO, "Black box snapshot created (%u fragments, cookie = %d)", fragment_count_,
                   cookie_);
        for (size_t at = kSnapshotHeaderBytes; at < payload.size(); at += kTimestampBytes) {
            timestamps_[payload[at]] = LoadU64(&payload[at + 1]);
        }
    }
    requestNextFragment();
}

void SensorBlackBoxClient::handleFragmentDone() {
    {
        const std::lock_guard lock(mutex_);
        if (stopped_) return;
    }
    requestNextFragment();
}

void SensorBlackBoxClient::requestNextFragment() {
    uint32_t index = 0;
    {
        const std::lock_guard lock(mutex_);
        if (next_fragment_ == fragment_count_) return;
        index = next_fragment_++;
    }
    SENSOR_LOG(DEBUG, "Requesting fragment %zu", size_t{index});
    std::array<uint8_t, 2 * sizeof(uint32_t)> payload;
    StoreU32(payload.data(), index);
    StoreU32(&payload[4], 1);
    if (!SendBlackBoxMessage(kGetFragmentRequest, payload.data(), payload.size())) {
        SENSOR_LOG(ERROR, "Failed to send kGetFragmentRequest to the black box");
    }
}

// A send may block for seconds when the daemon reads nothing. The report's reader is not made to
// wait for that: no lock is held here.
bool SensorBlackBoxClient::SendBlackBoxMessage(uint32_t type, const void* payload, size_t size) {
    flatbuffers::FlatBufferBuilder builder(kBuilderBytes);
    chre::HostProtocolCommon::encodeNanoappMessage(builder, nanoapp_id_, type, kHostEndpoint,
                                                   payload, size, kUnusedWord, kUnusedWord, false,
                                                   false, 0);
    return socket_.sendMessage(builder.GetBufferPointer(), builder.GetSize());
}

void SensorBlackBoxClient::handleFragmentData(const Payload& payload) {
    const std::lock_guard lock(mutex_);
    acceptPiece(payload);
    // Asked after every piece, not only after one that is added in full: a buffer of 0 bytes is
    // complete as it is made, and a piece may hold the last missing byte before a repeated one.
    if (stopped_ || Done()) {
        reader_woken_ = true;
        data_condition_.notify_one();
    }
}

void SensorBlackBoxClient::acceptPiece(const Payload& payload) {
    if (payload.size() <= Piece::kHeaderBytes) {
        SENSOR_LOG(ERROR, "Received fragment with null message data, stopping black box dump");
        stopped_ = true;
        return;
    }
    const Piece piece(payload);
    if (piece.cookie != cookie_) {
        SENSOR_LOG(ERROR, "Received fragment with incorrect cookie value (%d != %d)", piece.cookie,
                   cookie_);
        SENSOR_LOG(ERROR, "Stopping black box dump");
        stopped_ = true;
        return;
    }
    const SensorType* const type = FindSensorType(piece.sensor);
    if (type == nullptr) {
        SENSOR_LOG(WARN, "Ignoring unsupported sensor type %d", piece.sensor);
        return;
    }
    SensorBlackBoxBuffer* const buffer = findOrCreateBuffer(*type, piece.total_bytes);
    if (buffer == nullptr) return;
    if (buffer->Size() != piece.total_bytes) {
        SENSOR_LOG(ERROR,
                   "Inconsistent total_bytes values in black box data received "
                   "(Sensor: %d (%s), %u -> %u)",
                   piece.sensor, GetSensorName(piece.sensor), buffer->Size(), piece.total_bytes);
        return;
    }
    if (piece.offset >= buffer->Size() || piece.End() > buffer->Size()) {
        SENSOR_LOG(ERROR,
                   "Black box data out of bound. Sensor: %d (%s). Buffer: %u bytes. "
                   "Received: %u - %u.",
                   piece.sensor, GetSensorName(piece.sensor), buffer->Size(), piece.offset,
                   Shown(piece.End()));
        return;
    }
    if (payload.size() < piece.PayloadBytes()) {
        SENSOR_LOG(ERROR,
                   "Incomplete black box data buffer received.  Sensor: %d (%s).  "
                   "Expecting %u, received %u.",
                   piece.sensor, GetSensorName(piece.sensor), Shown(piece.PayloadBytes()),
                   Shown(payload.size()));
        return;
    }
    const uint32_t added =
            buffer->AddBytes(piece.offset, payload.data() + Piece::kHeaderBytes, piece.length);
    if (added < piece.length) {
        SENSOR_LOG(ERROR, "Duplicated byte received for sensor %d (%s) at offset %u", piece.sensor,
                   GetSensorName(piece.sensor), piece.offset + added);
        return;
    }
    if (buffer->Done()) {
        SENSOR_LOG(INFO, "Fully received black box data for sensor %d (%s)", piece.sensor,
                   GetSensorName(piece.sensor));
    }
}

SensorBlackBoxBuffer* SensorBlackBoxClient::findOrCreateBuffer(const SensorType& type,
                                                               uint32_t total_bytes) {
    const auto found = buffers_.find(type.number);
    if (found != buffers_.end()) return &found->second;
    if (total_bytes % type.record_size() != 0) {
        SENSOR_LOG(ERROR, "Unexpected size of buffer for sensor %d (%s): %u %% %zu != 0",
                   type.number, GetSensorName(type.number), total_bytes, type.record_size());
        return nullptr;
    }
    uint64_t announced = total_bytes;
    for (const auto& [number, buffer] : buffers_) announced += buffer.Size();
    if (announced > kMostSnapshotBytes) {
        SENSOR_LOG(ERROR,
                   "Refusing buffer for sensor %d (%s): %u bytes make %llu, more than the "
                   "%llu for all sensors",
                   type.number, GetSensorName(type.number), total_bytes,
                   static_cast<unsigned long long>(announced),
                   static_cast<unsigned long long>(kMostSnapshotBytes));
        return nullptr;
    }
    try {
        return &buffers_.try_emplace(type.number, type.number, total_bytes).first->second;
    } catch (const std::bad_alloc&) {
        SENSOR_LOG(ERROR, "Refusing buffer for sensor %d (%s): no memory for %u bytes", type.number,
                   GetSensorName(type.number), total_bytes);
        return nullptr;
    }
}

bool SensorBlackBoxClient::Done() const {
    return sensor_count_ != 0 && buffers_.size() == sensor_count_ &&
           std::ranges::all_of(buffers_, [](const auto& entry) { return entry.second.Done(); });
}

void SensorBlackBoxClient::PrintToFd(int fd, std::chrono::seconds timeout) {
    std::unique_lock lock(mutex_);
    if (!Done()) {
        // A dump that was stopped before anybody came to wait isn't waited for.
        const auto bounded = std::clamp(timeout, timeout.zero(), kLongestWait);
        data_condition_.wait_until(lock, std::chrono::steady_clock::now() + bounded,
                                   [this] { return reader_woken_; });
    }
    ReportWriter report(fd);
    report.Print("------ Sensor Black Box ------\n");
    for (const auto& [number, buffer] : buffers_) {
        const char* const name = GetSensorName(number);
        const auto newest = timestamps_.find(number);
        if (!buffer.Done()) {
            report.Print("Skipping Sensor %d (%s): Incomplete buffer\n", number, name);
        } else if (newest == timestamps_.end()) {
            report.Print("Skipping Sensor %d (%s): No timestamp info\n", number, name);
        } else {
            report.Print("*** Sensor %d (%s) ***\n", number, name);
            WriteRecords(report, *FindSensorType(number), buffer, newest->second);
        }
    }
}

}  // namespace tev::dumpstate
