#pragma once

#include <utils/RefBase.h>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

namespace android::chre {

// The connection to the context hub daemon: one sequenced-packet socket in the reserved namespace,
// and one thread that receives from it, hands every datagram on, and connects anew, with a back-off,
// when the connection is lost.
class SocketClient {
  public:
    // What the receive thread tells. All calls are made on it. They may send, but neither connect
    // nor disconnect, and throw nothing.
    class ICallbacks : public VirtualLightRefBase {
      public:
        // One whole datagram, which is valid only during the call.
        virtual void onMessageReceived(const void* data, uint32_t length) = 0;
        // After every successful connection, the first one included.
        virtual void onConnected() {}
        // The thread has given up and ends.
        virtual void onConnectionAbandoned() {}
        // The connection was lost and will be tried anew. Not after disconnect().
        virtual void onDisconnected() {}
    };

    SocketClient();
    ~SocketClient();  // disconnects
    SocketClient(const SocketClient&) = delete;
    SocketClient& operator=(const SocketClient&) = delete;

    // Starts the receive thread, which makes the first attempt 250 ms later, and holds a reference to
    // the callbacks while it runs. Disconnects first where a thread runs already. False for a name of
    // more than 63 characters, without callbacks, or on the receive thread; an absent daemon is no
    // failure.
    bool connectInBackground(const char* socketName, const sp<ICallbacks>& callbacks);

    // Ends the receive thread, from any state and without a callback, and waits for it. Refused on
    // the receive thread.
    void disconnect();

    // Sends one datagram. Any thread may call; see the implementation's own notes for what a send
    // that runs beside a lost connection can and can't promise. False when not all of it went.
    bool sendMessage(const void* data, size_t length);
};

}  // namespace android::chre
