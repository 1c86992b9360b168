#include "file_feeder.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <ctime>
#include <string_view>

#include "platform/bounded_write.h"

namespace android::os::dumpstate {
namespace {

// How long an abandoned thread gets to notice that nobody reads any more.
constexpr std::chrono::milliseconds kGrace{500};

// Created with every signal blocked, so that it takes none meant for the process and a lost reader
// is EPIPE.
int CreateWithSignalsBlocked(pthread_t* thread, void* (*run)(void*), void* argument) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const int error = pthread_create(thread, nullptr, run, argument);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return error;
}

bool JoinWithin(pthread_t thread, std::chrono::milliseconds grace) {
    timespec until{};
    clock_gettime(CLOCK_MONOTONIC, &until);
    const auto nanoseconds =
            std::chrono::nanoseconds(until.tv_nsec) + std::chrono::nanoseconds(grace);
    const auto seconds = std::chrono::floor<std::chrono::seconds>(nanoseconds);
    until.tv_sec += static_cast<time_t>(seconds.count());
    until.tv_nsec = static_cast<decltype(until.tv_nsec)>((nanoseconds - seconds).count());
    return pthread_clockjoin_np(thread, nullptr, CLOCK_MONOTONIC, &until) == 0;
}

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

}  // namespace

int FileFeeder::Start(const std::string& path) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return errno;
    read_end_.reset(ends[0]);
    shared_ = std::make_shared<Shared>();
    shared_->path = path;
    shared_->write_end.reset(ends[1]);

    auto for_thread = std::make_unique<std::shared_ptr<Shared>>(shared_);
    const int error = CreateWithSignalsBlocked(&thread_, Run, for_thread.get());
    if (error != 0) return error;
    static_cast<void>(for_thread.release());  // the thread's own now
    started_ = true;
    return 0;
}

FileFeeder::~FileFeeder() {
    read_end_.reset();
    if (started_ && !JoinWithin(thread_, kGrace)) pthread_detach(thread_);
}

void* FileFeeder::Run(void* shared) {
    const std::unique_ptr<std::shared_ptr<Shared>> mine(
            static_cast<std::shared_ptr<Shared>*>(shared));
    Feed(**mine);
    (*mine)->write_end.reset();
    return nullptr;
}

void FileFeeder::Feed(Shared& shared) {
    const base::unique_fd in(
            open(shared.path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    if (in.get() < 0) {
        shared.open_error = errno;
        return;
    }
    std::array<char, size_t{64} * 1024> buffer;
    for (;;) {
        const ssize_t size = read(in.get(), buffer.data(), buffer.size());
        if (size == 0) return;
        if (size > 0) {
            if (!WriteAll(shared.write_end.get(), {buffer.data(), static_cast<size_t>(size)})) {
                return;
            }
        } else if (errno == EAGAIN) {
            if (!WaitReadable(in.get(), shared.write_end.get())) return;
        } else if (errno != EINTR) {
            shared.read_error = errno;
            return;
        }
    }
}

}  // namespace android::os::dumpstate
