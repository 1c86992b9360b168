#pragma once

#include <android/binder_ibinder.h>
#include <systemd/sd-bus.h>

#include <atomic>
#include <memory>

struct AIBinder {
    const sd_bus_vtable* const vtable;  // the interface on the bus
    const std::shared_ptr<void>
            service;  // what the vtable's handlers get; the binder keeps it alive
    // Strong references. Outlives the binder for those that hold a weak one.
    const std::shared_ptr<std::atomic<int>> references = std::make_shared<std::atomic<int>>(1);
};
