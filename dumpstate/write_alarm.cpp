#include "write_alarm.h"

#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>

#ifndef sigev_notify_thread_id  // older C libraries have the field without its name
#define sigev_notify_thread_id _sigev_un._tid
#endif

namespace aidl::android::hardware::dumpstate {
namespace {

std::atomic<bool> g_rang = false;
static_assert(std::atomic<bool>::is_always_lock_free, "set in a signal handler");

}  // namespace

WriteAlarm::WriteAlarm() {
    struct sigaction on_ring {};
    on_ring.sa_handler = [](int) { g_rang = true; };  // no SA_RESTART: the call is to be broken
    sigemptyset(&on_ring.sa_mask);
    sigaction(SIGRTMIN, &on_ring, nullptr);

    sigevent ring{};
    ring.sigev_notify = SIGEV_THREAD_ID;
    ring.sigev_signo = SIGRTMIN;
    ring.sigev_notify_thread_id = static_cast<pid_t>(syscall(SYS_gettid));
    armed_ = timer_create(CLOCK_MONOTONIC, &ring, &timer_) == 0;
}

WriteAlarm::~WriteAlarm() {
    if (armed_) timer_delete(timer_);
}

void WriteAlarm::Set(std::chrono::seconds patience) {
    g_rang = false;
    if (!armed_) return;
    // It keeps ringing: the first ring may come just before the write begins.
    itimerspec at{};
    at.it_value.tv_sec = static_cast<time_t>(patience.count());
    at.it_interval.tv_sec = 1;
    timer_settime(timer_, 0, &at, nullptr);
}

bool WriteAlarm::rang() const {
    return g_rang;
}

}  // namespace aidl::android::hardware::dumpstate
