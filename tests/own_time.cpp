#include "own_time.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>

using namespace std::chrono_literals;

static thread_local OwnTime* own_time = nullptr;

OwnTime::OwnTime() {
    own_time = this;
}

OwnTime::~OwnTime() {
    own_time = nullptr;
}

template <typename Function>
static Function* Next(const char* name, Function* /*same*/) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

static timespec ToTimespec(std::chrono::milliseconds time) {
    return {static_cast<time_t>(time / 1s), static_cast<long>(time % 1s / 1ns)};
}

extern "C" int clock_gettime(clockid_t clock, timespec* time) {
    static const auto get = Next("clock_gettime", clock_gettime);
    if (own_time == nullptr) return get(clock, time);
    *time = ToTimespec(own_time->passed);
    return 0;
}

extern "C" int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                      clockid_t clock, const timespec* deadline) {
    static const auto wait = Next("pthread_cond_clockwait", pthread_cond_clockwait);
    if (own_time == nullptr) return wait(condition, mutex, clock, deadline);
    own_time->passed = deadline->tv_sec * 1s + deadline->tv_nsec / 1000000 * 1ms;
    return ETIMEDOUT;
}

static int RealPoll(pollfd* fds, nfds_t count, std::chrono::milliseconds timeout) {
    const timespec limit = ToTimespec(timeout);
    return ppoll(fds, count, timeout < 0ms ? nullptr : &limit, nullptr);
}

// Under a name of its own, as the C library says of its poll(2) that it only writes.
extern "C" int PollInOwnTime(pollfd* fds, nfds_t count, int millis) __asm__("poll");
int PollInOwnTime(pollfd* fds, nfds_t count, int millis) {
    OwnTime* const own = own_time;
    if (own == nullptr) return RealPoll(fds, count, millis * 1ms);
    if (own->interruptions > 0) {
        --own->interruptions;
        errno = EINTR;
        return -1;
    }
    const bool for_input = fds->events == POLLIN;
    if (for_input) own->passed += 10ms;
    if (!for_input && own->slow_reader != -1) {
        own->passed += millis * 1ms;
        if (++own->looks % 20 != 0) return 0;
        std::array<char, 4096> page{};
        const ssize_t size = read(own->slow_reader, page.data(), page.size());
        EXPECT_GT(size, 0);
        own->on_read({page.data(), static_cast<size_t>(size)});
        return 1;
    }
    const bool real = for_input && own->inputs > 0;
    if (real) --own->inputs;
    const int ready = RealPoll(fds, count, real ? 60s : 0s);
    if (ready == 0) {
        if (own->on_vain_wait) own->on_vain_wait();
        own->passed += millis * 1ms;
        if (!for_input) own->waits += millis * 1ms;
        own->waited = std::max(own->waited, own->waits);
    } else if (!for_input) {
        own->waits = 0ms;
    }
    return ready;
}
