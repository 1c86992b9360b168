#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <systemd/sd-bus.h>

#include <cerrno>
#include <string>
#include <string_view>

#include "binder.h"

namespace {

// The one connection and the one service of this process; the main thread's alone.
struct Connection {
    sd_bus* bus = nullptr;
    ndk::SpAIBinder binder;
    ~Connection() { sd_bus_close_unref(bus); }
};

Connection& TheConnection() {
    static Connection connection;
    return connection;
}

}  // namespace

binder_status_t AServiceManager_registerLazyService(AIBinder* binder, const char* instance) {
    const std::string_view full = instance;
    const size_t slash = full.find('/');
    if (slash == std::string_view::npos) return -EINVAL;
    const std::string name(full.substr(0, slash));
    const std::string path(full.substr(slash));

    Connection& connection = TheConnection();
    if (connection.bus != nullptr) return -EEXIST;
    AIBinder_incStrong(binder);
    connection.binder = ndk::SpAIBinder(binder);
    int result = sd_bus_open_system(&connection.bus);
    if (result < 0) return result;
    // The object before the name: the call that started this process is waiting for the name.
    result = sd_bus_add_object_vtable(connection.bus, nullptr, path.c_str(), name.c_str(),
                                      binder->vtable, binder->service.get());
    if (result < 0) return result;
    result = sd_bus_request_name(connection.bus, name.c_str(), 0);
    return result < 0 ? result : STATUS_OK;
}

bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t count) {
    return count == 0;
}

void ABinderProcess_joinThreadPool() {
    sd_bus* const bus = TheConnection().bus;
    if (bus == nullptr) return;
    for (;;) {
        int result = sd_bus_process(bus, nullptr);
        if (result == 0) result = sd_bus_wait(bus, UINT64_MAX);
        if (result < 0) return;
    }
}
