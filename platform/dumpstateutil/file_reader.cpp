#include "file_reader.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <string_view>
#include <utility>

#include "held_thread.h"

namespace android::os::dumpstate {
namespace {

// Waits for input; false once nobody reads the pipe any more.
bool WaitReadable(int in, int pipe) {
    std::array<pollfd, 2> ends{pollfd{in, POLLIN, 0}, pollfd{pipe, 0, 0}};
    poll(ends.data(), ends.size(), -1);
    return (ends[1].revents & POLLERR) == 0;
}

bool WriteAll(int pipe, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(pipe, bytes.data(), bytes.size());
        if (written > 0) {
            bytes.remove_prefix(static_cast<size_t>(written));
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

// Returns the errno with which reading failed, or 0.
int Feed(int in, int pipe) {
    std::array<char, size_t{64} * 1024> buffer;
    for (;;) {
        const ssize_t size = read(in, buffer.data(), buffer.size());
        if (size == 0) return 0;
        if (size > 0) {
            if (!WriteAll(pipe, {buffer.data(), static_cast<size_t>(size)})) return 0;
        } else if (errno == EAGAIN) {
            if (!WaitReadable(in, pipe)) return 0;
        } else if (errno != EINTR) {
            return errno;
        }
    }
}

}  // namespace

struct FileReader::Job {
    Job(std::string its_path, int its_write_end)
        : path(std::move(its_path)), write_end(its_write_end) {}

    const std::string path;
    base::unique_fd write_end;
    std::atomic<int> open_error = 0;
    std::atomic<int> read_error = 0;

    void Run() {
        const base::unique_fd in(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
        if (in.get() < 0) {
            open_error = errno;
        } else {
            read_error = Feed(in.get(), write_end.get());
        }
        write_end.reset();  // the last, as it tells that the errors are known
    }
};

int FileReader::Start(const std::string& path) {
    if (IsHeld(path)) return EALREADY;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return errno;
    pipe_.reset(ends[0]);
    job_ = std::make_shared<Job>(path, ends[1]);
    return StartDetached([job = job_] { job->Run(); });
}

void FileReader::Abandon() const {
    RememberHeld(job_->path, job_);
}

int FileReader::open_error() const {
    return job_->open_error;
}

int FileReader::read_error() const {
    return job_->read_error;
}

}  // namespace android::os::dumpstate
