// The least that can stand in for the service: the two methods that are measured, of which the
// report is its first line.

#include <systemd/sd-bus.h>

#include <cstdint>
#include <cstdio>

namespace {

constexpr char kName[] = "android.hardware.dumpstate.IDumpstateDevice";

int DumpstateBoard(sd_bus_message* call, void* /*data*/, sd_bus_error* /*error*/) {
    int fd = -1;
    const int result = sd_bus_message_read(call, "ah", 1, &fd);
    if (result < 0) return result;
    dprintf(fd, "verbose logging: disabled\n");
    return sd_bus_reply_method_return(call, "");
}

int GetInterfaceVersion(sd_bus_message* call, void* /*data*/, sd_bus_error* /*error*/) {
    return sd_bus_reply_method_return(call, "i", 1);
}

constexpr sd_bus_vtable kMethods[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_METHOD("dumpstateBoard", "ahix", "", DumpstateBoard, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_METHOD("getInterfaceVersion", "", "i", GetInterfaceVersion,
                      SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_VTABLE_END,
};

}  // namespace

int main() {
    sd_bus* bus = nullptr;
    int result = sd_bus_open_system(&bus);
    if (result >= 0)
        result = sd_bus_add_object_vtable(bus, nullptr, "/default", kName, kMethods, nullptr);
    if (result >= 0) result = sd_bus_request_name(bus, kName, 0);
    while (result >= 0) {
        result = sd_bus_process(bus, nullptr);
        if (result == 0) result = sd_bus_wait(bus, UINT64_MAX);
    }
    return 1;
}
