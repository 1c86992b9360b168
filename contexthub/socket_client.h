#pragma once

#include <utils/RefBase.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace android::chre {

// The connection to the context hub daemon: one sequenced-packet socket in the reserved namespace,
// and one thread that receives from it, hands every datagram on, and connects anew, with a
// back-off, when the connection is lost. Failures are false results, callbacks and log records.
//
// Any thread may call any operation at any time between the end of the constructor and the start of
// the destructor: connects and disconnects are served one after the other, sends beside everything.
// The receive thread's reference keeps a callbacks object that owns its client: who lets go of the
// two without disconnecting leaves them, and the thread, until the connection is given up.
class SocketClient {
  public:
    // What the receive thread tells. All calls are made on it. They may send, but neither connect
    // nor disconnect, and throw nothing.
    class ICallbacks : public VirtualLightRefBase {
      public:
        // One whole datagram, which is valid only during the call and aligned for any type. Of one
        // longer than 32768 bytes only so many arrive.
        virtual void onMessageReceived(const void* data, uint32_t length) = 0;
        // After every connection that the receive thread has made.
        virtual void onConnected() {}
        // The thread has given up and ends.
        virtual void onConnectionAbandoned() {}
        // The connection was lost and will be tried anew. Not after disconnect().
        virtual void onDisconnected() {}
    };

    // When a wait of the back-off that begins now is over. It is asked on the receive thread, once
    // an attempt; a time that has passed makes the attempt at once.
    using Deadline =
            std::function<std::chrono::steady_clock::time_point(std::chrono::milliseconds)>;

    SocketClient();  // waits as long as the back-off says
    explicit SocketClient(Deadline deadline);
    // Disconnects. Also runs on the receive thread where that lets go of the last reference to
    // callbacks that own the client; in a callback it ends the process.
    ~SocketClient();
    SocketClient(const SocketClient&) = delete;
    SocketClient& operator=(const SocketClient&) = delete;

    // Starts the receive thread, which makes the first attempt 250 ms later, and holds a reference
    // to the callbacks while it runs. Disconnects first where there is a thread already, be it one
    // that has given up. False for a name of more than 63 characters, without callbacks, or on the
    // receive thread; an absent daemon is no failure.
    //
    // The one failure that is no result is the want of a thread: std::system_error, which leaves
    // the client disconnected and without the callbacks. The caller that can do without the hub
    // catches it.
    bool connectInBackground(const char* socketName, const sp<ICallbacks>& callbacks);

    // The same, except that without background the first attempt is made at once and on the calling
    // thread: false when it fails, and no onConnected() when it succeeds.
    bool doConnect(const char* socketName, const sp<ICallbacks>& callbacks, bool background);

    // Ends the receive thread, from any state, and waits for it, which takes as long as the
    // callback that it may be in or just about to make; none begins after that. Refused on the
    // receive thread.
    void disconnect();

    // Sends one datagram, taking no lock and making no copy. False when it did not go whole: there
    // is no connection, the daemon is gone (SIGPIPE must not end the process), or for three seconds
    // it has not made room.
    //
    // A send reaches the connection that is there when it begins, or nothing: one that is lost
    // meanwhile makes it false, and its descriptor is not closed, and so can't become another
    // file's, before the send has let go of it. True says that the socket took the datagram, not
    // that the daemon read it; after a reconnection nothing is sent again. Sends of one thread
    // arrive in their order, those of several threads in any.
    bool sendMessage(const void* data, size_t length);

  private:
    class SocketInUse;

    bool onReceiveThread() const;
    bool tryConnect(bool suppressErrorLogs);
    bool reconnect();
    void receiveThread();
    bool receiveWhileConnected();
    bool receiveOne(int epollFd);
    void closeSocket();

    std::array<char, 64> socketName_{};
    sp<ICallbacks> callbacks_;  // the receive thread's own while it runs
    std::atomic<int32_t> socket_ = -1;
    std::thread receiveThread_;
    std::atomic<bool> shuttingDown_ = false;
    std::condition_variable shutdownCondition_;
    std::mutex shutdownMutex_;
    std::vector<uint8_t> receiveBuffer_;

    const Deadline deadline_;
    std::atomic<uint32_t> socketUsers_ = 0;
    // Held by a connect or disconnect from its beginning to its end. Recursive because a connect
    // may have to disconnect.
    std::recursive_mutex lifecycleMutex_;
};

}  // namespace android::chre
