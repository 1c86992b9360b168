// The thread sanitizer of g++ 12 doesn't see pthread_clockjoin_np(3), takes every thread that it
// joins for leaked, and gives up when the next one gets the same id. Only its builds link this.

#include <pthread.h>
#include <time.h>

#include <chrono>

extern "C" int pthread_clockjoin_np(pthread_t thread, void** result, clockid_t clock,
                                    const timespec* until) {
    const auto since_epoch = [](const timespec& time) {
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    };
    timespec now{};
    timespec wall{};
    clock_gettime(clock, &now);
    clock_gettime(CLOCK_REALTIME, &wall);
    const auto deadline = since_epoch(wall) + since_epoch(*until) - since_epoch(now);
    const auto seconds = std::chrono::floor<std::chrono::seconds>(deadline);
    wall = {seconds.count(), (deadline - seconds).count()};
    return pthread_timedjoin_np(thread, result, &wall);
}
