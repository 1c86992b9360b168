#include "temporary_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace reader {

std::string Reason(int error) {
    return std::generic_category().message(error);
}

int OpenTemporary() {
    const char* const named = std::getenv("TMPDIR");
    const std::string folder = named == nullptr || *named == '\0' ? "/tmp" : named;
    const int fd = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (fd >= 0 || (errno != EOPNOTSUPP && errno != EISDIR)) return fd;
    std::string path = folder + "/boardreport.XXXXXX";
    const int named_fd = mkostemp(path.data(), O_CLOEXEC);
    if (named_fd >= 0) unlink(path.c_str());
    return named_fd;
}

bool WriteAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return false;
        bytes.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

}  // namespace reader
