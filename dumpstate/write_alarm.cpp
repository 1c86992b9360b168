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
    exists_ = timer_create(CLOCK_MONOTONIC, &ring, &timer_) == 0;

    sigset_t mask;  // who started the process may have blocked it
    sigemptyset(&mask);
    sigaddset(&mask, SIGRTMIN);
    pthread_sigmask(SIG_UNBLOCK, &mask, nullptr);
}

WriteAlarm::~WriteAlarm() {
    if (exists_) timer_delete(timer_);
}

void WriteAlarm::Set(std::chrono::seconds patience) {
    constexpr std::chrono::seconds kSlack{1};
    const auto now = std::chrono::steady_clock::now();
    if (!exists_ || now - set_at_ < kSlack) return;
    set_at_ = now;
    g_rang = false;
    // It keeps ringing: the first ring may come just before the write begins.
    itimerspec at{};
    at.it_value.tv_sec = static_cast<time_t>((patience + kSlack).count());
    at.it_interval.tv_sec = 1;
    timer_settime(timer_, 0, &at, nullptr);
}

bool WriteAlarm::rang() const {
    return g_rang;
}

}  // namespace aidl::android::hardware::dumpstate
