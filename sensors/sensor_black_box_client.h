#pragma once

#include <utils/RefBase.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "host_protocol_host.h"
#include "sensor_black_box_buffer.h"
#include "sensor_types.h"
#include "socket_client.h"

namespace tev::dumpstate {

// Fetches one snapshot of the sensors' recent data from the black box nanoapp and prints it.
//
// The exchange runs by itself on the connection's receive thread, which makes every callback and
// runs every handler; each answer of the nanoapp brings the next request. A failure is a line in
// the log and the end of the exchange: nothing but the connection is tried again. doc/formats.md
// has the messages.
//
// While its connection is up, the connection holds a reference to the client that owns it. So who
// started a client calls disconnect() before letting go of it, on a thread that is not the receive
// thread. The client of one who doesn't goes on until the connection has been given up.
class SensorBlackBoxClient : public android::chre::SocketClient::ICallbacks,
                             public android::chre::IChreMessageHandlers {
  public:
    // A client that is connecting in the background to the context hub daemon's socket of that
    // name; none when that can't even be begun. An absent daemon is waited for.
    static android::sp<SensorBlackBoxClient> start(uint64_t nanoapp_id, const char* socket_name);

    // A client without a connection, for whoever hands it the messages: no request gets anywhere.
    explicit SensorBlackBoxClient(uint64_t nanoapp_id) : nanoapp_id_(nanoapp_id) {}

    // Ends the connection and its thread, whatever they are doing, and waits for that.
    void disconnect() { socket_.disconnect(); }

    // Waits until the snapshot is complete or the dump has been stopped, for no longer than the
    // time-out and not at all when that is 0 or less, and then writes what is there as text. fd
    // stays the caller's.
    void PrintToFd(int fd, std::chrono::seconds timeout);

    // The receive thread's. An exception costs the message it hit.
    void onConnected() override;
    void onMessageReceived(const void* data, uint32_t length) override;
    void handleNanoappMessage(const chre::fbs::NanoappMessageT& message) override;
    void handleNanoappListResponse(const chre::fbs::NanoappListResponseT& response) override;

  private:
    using Payload = std::vector<uint8_t>;

    void handleSensorCountReply(const Payload& payload);
    void handleSnapshotReply(const Payload& payload);
    void handleFragmentDone();
    void handleFragmentData(const Payload& payload);

    bool SendBlackBoxMessage(uint32_t type, const void* payload, size_t size);
    void requestSnapshot();
    void requestNextFragment();

    // These want the mutex held.
    bool Done() const;
    void acceptPiece(const Payload& payload);
    SensorBlackBoxBuffer* findOrCreateBuffer(const SensorType& type, uint32_t total_bytes);

    android::chre::SocketClient socket_;
    const uint64_t nanoapp_id_;
    uint32_t sensor_count_ = 0;  // 0 is not yet known
    uint32_t fragment_count_ = 0;
    uint32_t next_fragment_ = 0;
    uint8_t cookie_ = 0;
    std::mutex mutex_;  // guards all fields but socket and id; never held while sending
    std::unordered_map<uint8_t, SensorBlackBoxBuffer> buffers_;  // by sensor type
    std::unordered_map<uint8_t, uint64_t>
            timestamps_;  // nanoseconds of the newest record, likewise
    bool stopped_ = false;
    bool reader_woken_ = false;  // for good: one snapshot is all there will be
    std::condition_variable data_condition_;
};

}  // namespace tev::dumpstate
