#include "channel.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

namespace {

// Far more than a client that reads what it asks for ever leaves in the queue.
constexpr size_t kMostPending = size_t{1} << 20;
constexpr size_t kMostGarbage = 2048;

}  // namespace

bool Channel::Passes(Message message) {
    if (silent_) return false;
    const Faults::Action action = faults_.Meet(message);
    if (action == Faults::Action::kNone) return true;
    const bool ends = action == Faults::Action::kHangUp;
    Say("%s at %s, as told", ends ? "hanging up" : "hanging",
        kMessageNames.at(static_cast<size_t>(message)).data());
    if (ends) Queue({});
    silent_ = true;
    return false;
}

void Channel::Send(Message message, flatbuffers::DetachedBuffer bytes) {
    if (!Passes(Message::kSent) || !Passes(message)) return;
    if (faults_.GarbageComes()) QueueGarbage();
    Queue(std::move(bytes));
}

void Channel::QueueGarbage() {
    const size_t size = std::uniform_int_distribution<size_t>(1, kMostGarbage)(random_);
    std::vector<uint8_t> bytes(size);
    std::ranges::generate(bytes, [this] { return static_cast<uint8_t>(random_()); });
    flatbuffers::FlatBufferBuilder builder(size);
    builder.PushFlatBuffer(bytes.data(), size);
    Queue(builder.Release());
}

void Channel::Queue(flatbuffers::DetachedBuffer bytes) {
    if (overflown_) return;
    if (bytes.size() > kMostPending - pending_bytes_) {
        Say("it does not read what it asks for; hanging up with %zu bytes unsent", pending_bytes_);
        overflown_ = true;
        return;
    }
    const Clock::time_point now = Clock::now();
    const Clock::time_point after = pending_.empty() ? now : std::max(now, pending_.back().due);
    pending_bytes_ += bytes.size();
    pending_.push_back({after + faults_.plan().delay, std::move(bytes)});
}

bool Channel::Flush(int fd) {
    blocked_ = false;
    if (overflown_) return false;
    for (const Clock::time_point now = Clock::now();
         !pending_.empty() && pending_.front().due <= now;) {
        const flatbuffers::DetachedBuffer& bytes = pending_.front().bytes;
        if (bytes.size() == 0) return false;
        if (send(fd, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL) < 0) {
            if (errno == EINTR) continue;
            blocked_ = errno == EAGAIN;
            if (blocked_) return true;
            Say("cannot send: %s", std::strerror(errno));
            return false;
        }
        pending_bytes_ -= bytes.size();
        pending_.pop_front();
    }
    return true;
}

Channel::Clock::time_point Channel::due() const {
    return pending_.empty() || blocked_ ? Clock::time_point::max() : pending_.front().due;
}

void Channel::Say(const char* format, ...) const {
    char line[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    std::fprintf(stderr, "contexthubd: client %u: %s\n", number_, line);
}
