#include "listening_socket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>

using android::base::unique_fd;

namespace {

std::string Reason(int error) {
    return std::generic_category().message(error);
}

unique_fd NewSocket() {
    return unique_fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

// The path fits.
template <typename Call>
int WithAddress(Call call, int fd, const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return call(fd, reinterpret_cast<const sockaddr*>(&address), socklen_t{sizeof address});
}

// Why what is at the path may not be replaced, or "".
std::string InTheWay(const std::string& path) {
    struct stat there {};
    if (lstat(path.c_str(), &there) != 0) return errno == ENOENT ? "" : Reason(errno);
    if (!S_ISSOCK(there.st_mode)) return "there is something else than a socket";
    const unique_fd probe = NewSocket();
    if (probe.get() < 0) return Reason(errno);
    if (WithAddress(connect, probe.get(), path) != 0 && errno == ECONNREFUSED) return "";
    return "a daemon is listening there already; end it, or choose another path with --socket";
}

}  // namespace

std::string ListeningSocket::Open(const std::string& path) {
    const std::string sentence = "cannot listen at " + path + ": ";
    // Made beside and then moved, so that nobody finds it before it listens.
    const std::string beside = path + "." + std::to_string(getpid());
    if (beside.size() >= sizeof sockaddr_un{}.sun_path) return sentence + "the path is too long";
    const std::string obstacle = InTheWay(path);
    if (!obstacle.empty()) return sentence + obstacle;
    unique_fd made = NewSocket();
    if (made.get() < 0) return sentence + Reason(errno);
    unlink(beside.c_str());
    if (WithAddress(bind, made.get(), beside) != 0) return sentence + Reason(errno);
    struct stat status {};
    if (listen(made.get(), SOMAXCONN) != 0 || lstat(beside.c_str(), &status) != 0 ||
        std::rename(beside.c_str(), path.c_str()) != 0) {
        const int error = errno;
        unlink(beside.c_str());
        return sentence + Reason(error);
    }
    fd_ = std::move(made);
    path_ = path;
    device_ = status.st_dev;
    inode_ = status.st_ino;
    return "";
}

ListeningSocket::~ListeningSocket() {
    struct stat there {};
    if (path_.empty() || lstat(path_.c_str(), &there) != 0) return;
    if (there.st_dev == device_ && there.st_ino == inode_) unlink(path_.c_str());
}
