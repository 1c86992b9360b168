#pragma once

#include <android/binder_ibinder.h>
#include <systemd/sd-bus.h>

#include <memory>
#include <mutex>

// Outlives the binder for those that hold a weak reference.
struct BinderReferences {
    std::mutex mutex;
    int strong = 1;
};

struct AIBinder {
    const sd_bus_vtable* const vtable;  // the interface on the bus
    const std::shared_ptr<void>
            service;  // what the vtable's handlers get; kept alive by the binder
    const std::shared_ptr<BinderReferences> references = std::make_shared<BinderReferences>();
};
