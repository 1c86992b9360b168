#include "no_threads.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>

static std::atomic<bool> no_threads = false;

NoThreads::NoThreads() {
    no_threads = true;
}

NoThreads::~NoThreads() {
    no_threads = false;
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                   void* argument) {
    static const auto create =
            reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    return no_threads ? EAGAIN : create(thread, attributes, run, argument);
}
