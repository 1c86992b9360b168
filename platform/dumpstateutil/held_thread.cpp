#include "held_thread.h"

#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

namespace android::os::dumpstate {
namespace {

constexpr size_t kStack = size_t{160} * 1024;  // a buffer of 64 KiB, and the C library's needs

struct Held {
    std::string path;
    std::weak_ptr<void> owned_by_thread;
};

std::mutex g_mutex;
std::vector<Held>& g_held = *new std::vector<Held>;  // a held thread may outlive static objects

void* Run(void* task) {
    (*std::unique_ptr<std::function<void()>>(static_cast<std::function<void()>*>(task)))();
    return nullptr;
}

}  // namespace

int StartDetached(std::function<void()> task) {
    auto mine = std::make_unique<std::function<void()>>(std::move(task));
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, kStack);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_t thread;
    const int error = pthread_create(&thread, &attributes, Run, mine.get());
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    if (error == 0) static_cast<void>(mine.release());  // the thread's own now
    return error;
}

void RememberHeld(const std::string& path, const std::shared_ptr<void>& owned_by_thread) {
    const std::lock_guard lock(g_mutex);
    g_held.push_back({path, owned_by_thread});
}

bool IsHeld(const std::string& path) {
    const std::lock_guard lock(g_mutex);
    std::erase_if(g_held, [](const Held& held) { return held.owned_by_thread.expired(); });
    return std::ranges::find(g_held, path, &Held::path) != g_held.end();
}

}  // namespace android::os::dumpstate
