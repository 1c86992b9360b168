#include <cutils/sockets.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <string_view>

int socket_local_client_connect(int fd, const char* name, int namespace_id, int /*type*/) {
    constexpr std::string_view kDirectory = "/dev/socket/";
    if (namespace_id != ANDROID_SOCKET_NAMESPACE_RESERVED) {
        errno = EINVAL;
        return -1;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string_view last = name;
    if (kDirectory.size() + last.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    kDirectory.copy(address.sun_path, kDirectory.size());
    last.copy(address.sun_path + kDirectory.size(), last.size());
    const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
    return connect(fd, generic, sizeof address) == 0 ? fd : -1;
}
