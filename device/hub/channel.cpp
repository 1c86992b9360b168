#include "channel.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

bool Channel::Passes(Message message) {
    if (!open_) return false;
    const Faults::Action action = faults_.Meet(message);
    if (action == Faults::Action::kNone) return true;
    const bool hangs = action == Faults::Action::kHang;
    Say("%s at %s, as told", hangs ? "hanging" : "hanging up",
        kMessageNames.at(static_cast<size_t>(message)).data());
    if (hangs) PeerLeaves(-1);
    open_ = false;
    return false;
}

void Channel::Send(Message message, const flatbuffers::DetachedBuffer& bytes) {
    if (!Passes(Message::kSent) || !Passes(message)) return;
    const auto delay = static_cast<int>(faults_.plan().delay_ms);
    if (delay != 0 && PeerLeaves(delay)) {
        open_ = false;
    } else if (send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0) {
        Say("cannot send: %s", std::strerror(errno));
        open_ = false;
    }
}

bool Channel::PeerLeaves(int patience_ms) const {
    pollfd peer{fd_, POLLRDHUP, 0};
    return poll(&peer, 1, patience_ms) > 0;
}

void Channel::Say(const char* format, ...) const {
    char line[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    std::fprintf(stderr, "contexthubd: client %u: %s\n", number_, line);
}
