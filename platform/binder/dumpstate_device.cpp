#include <aidl/android/hardware/dumpstate/BnDumpstateDevice.h>
#include <android/log.h>
#include <systemd/sd-bus.h>

#include <cerrno>
#include <exception>

#include "binder.h"

namespace aidl::android::hardware::dumpstate {

const char* const IDumpstateDevice::descriptor = "android.hardware.dumpstate.IDumpstateDevice";
const int32_t IDumpstateDevice::version = 1;
const std::string IDumpstateDevice::hash = "d7c8d1b9054ec2fb0510edb68b95ca69fd038719";

namespace {

// The descriptors of one call, which stay the message's.
class BorrowedDescriptors {
  public:
    ~BorrowedDescriptors() {
        for (ndk::ScopedFileDescriptor& fd : fds_) static_cast<void>(fd.release());
    }
    int Read(sd_bus_message* message) {
        int result = sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, "h");
        if (result < 0) return result;
        int fd = -1;
        while ((result = sd_bus_message_read_basic(message, SD_BUS_TYPE_UNIX_FD, &fd)) > 0) {
            fds_.emplace_back(fd);
        }
        return result < 0 ? result : sd_bus_message_exit_container(message);
    }
    const std::vector<ndk::ScopedFileDescriptor>& get() const { return fds_; }

  private:
    std::vector<ndk::ScopedFileDescriptor> fds_;
};

// Answers the call with the status, or when that is OK with the values.
template <typename... Values>
int Reply(sd_bus_message* call, sd_bus_error* error, const ndk::ScopedAStatus& status,
          const char* types, Values... values) {
    if (status.isOk()) return sd_bus_reply_method_return(call, types, values...);
    const bool illegal = status.getExceptionCode() == EX_ILLEGAL_ARGUMENT;
    return sd_bus_error_set(error, illegal ? SD_BUS_ERROR_INVALID_ARGS : SD_BUS_ERROR_FAILED,
                            status.getMessage());
}

// False only where the bus knows it. Callers that have given up wait in the queue like others, and
// a report of minutes for each would keep those waiting that haven't. Asked over a connection of
// its own: who waits for an answer on that of the calls reads all that come before it, and holds
// their descriptors.
bool IsOnTheBus(const char* name) {
    constexpr uint64_t kPatienceMicroseconds = 5'000'000;
    constexpr char kBus[] = "org.freedesktop.DBus";
    sd_bus* bus = nullptr;
    sd_bus_message* answer = nullptr;
    int owned = 1;
    if (sd_bus_open_system(&bus) >= 0 &&
        sd_bus_set_method_call_timeout(bus, kPatienceMicroseconds) >= 0 &&
        sd_bus_call_method(bus, kBus, "/org/freedesktop/DBus", kBus, "NameHasOwner", nullptr,
                           &answer, "s", name) >= 0 &&
        sd_bus_message_read(answer, "b", &owned) < 0) {
        owned = 1;
    }
    sd_bus_message_unref(answer);
    sd_bus_close_unref(bus);
    return owned != 0;
}

int DumpstateBoard(IDumpstateDevice& device, sd_bus_message* call, sd_bus_error* error) {
    const char* const caller = sd_bus_message_get_sender(call);
    if (caller != nullptr && !IsOnTheBus(caller)) {
        __android_log_print(ANDROID_LOG_WARN, nullptr,
                            "%s has left the bus: its call for a report is dropped", caller);
        return 1;  // served: nobody is left to be answered
    }
    BorrowedDescriptors fds;
    int32_t mode = 0;
    int64_t timeout_millis = 0;
    int result = fds.Read(call);
    if (result >= 0) result = sd_bus_message_read(call, "ix", &mode, &timeout_millis);
    if (result < 0) {
        return sd_bus_error_set(error, SD_BUS_ERROR_INVALID_ARGS,
                                "The call's descriptors don't come with it");
    }
    const auto status = device.dumpstateBoard(
            fds.get(), static_cast<IDumpstateDevice::DumpstateMode>(mode), timeout_millis);
    return Reply(call, error, status, "");
}

int GetVerboseLoggingEnabled(IDumpstateDevice& device, sd_bus_message* call, sd_bus_error* error) {
    bool enabled = false;
    const auto status = device.getVerboseLoggingEnabled(&enabled);
    return Reply(call, error, status, "b", static_cast<int>(enabled));
}

int SetVerboseLoggingEnabled(IDumpstateDevice& device, sd_bus_message* call, sd_bus_error* error) {
    int enabled = 0;
    if (const int result = sd_bus_message_read(call, "b", &enabled); result < 0) return result;
    const auto status = device.setVerboseLoggingEnabled(enabled != 0);
    return Reply(call, error, status, "");
}

int GetInterfaceVersion(IDumpstateDevice& device, sd_bus_message* call, sd_bus_error* error) {
    int32_t version = 0;
    const auto status = device.getInterfaceVersion(&version);
    return Reply(call, error, status, "i", version);
}

int GetInterfaceHash(IDumpstateDevice& device, sd_bus_message* call, sd_bus_error* error) {
    std::string hash;
    const auto status = device.getInterfaceHash(&hash);
    return Reply(call, error, status, "s", hash.c_str());
}

using Operation = int(IDumpstateDevice&, sd_bus_message*, sd_bus_error*);

// What the bus library calls: no exception may reach it.
template <Operation operation>
int Serve(sd_bus_message* call, void* device, sd_bus_error* error) {
    try {
        return operation(*static_cast<IDumpstateDevice*>(device), call, error);
    } catch (const std::exception& failure) {
        return sd_bus_error_set(error, SD_BUS_ERROR_FAILED, failure.what());
    }
}

// Who may call is the bus's policy to say. Without this, which holds for one method only, the
// library asks the bus about each caller and refuses all but root and the service's own user.
constexpr uint64_t kAnybody = SD_BUS_VTABLE_UNPRIVILEGED;

constexpr sd_bus_vtable kMethods[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_METHOD_WITH_ARGS("dumpstateBoard", SD_BUS_ARGS("ah", fds, "i", mode, "x", timeout),
                                SD_BUS_NO_RESULT, Serve<DumpstateBoard>, kAnybody),
        SD_BUS_METHOD_WITH_ARGS("getVerboseLoggingEnabled", SD_BUS_NO_ARGS,
                                SD_BUS_RESULT("b", enabled), Serve<GetVerboseLoggingEnabled>,
                                kAnybody),
        SD_BUS_METHOD_WITH_ARGS("setVerboseLoggingEnabled", SD_BUS_ARGS("b", enabled),
                                SD_BUS_NO_RESULT, Serve<SetVerboseLoggingEnabled>, kAnybody),
        SD_BUS_METHOD_WITH_ARGS("getInterfaceVersion", SD_BUS_NO_ARGS, SD_BUS_RESULT("i", version),
                                Serve<GetInterfaceVersion>, kAnybody),
        SD_BUS_METHOD_WITH_ARGS("getInterfaceHash", SD_BUS_NO_ARGS, SD_BUS_RESULT("s", hash),
                                Serve<GetInterfaceHash>, kAnybody),
        SD_BUS_VTABLE_END,
};

}  // namespace

ndk::ScopedAStatus BnDumpstateDevice::getInterfaceVersion(int32_t* out) {
    *out = version;
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus BnDumpstateDevice::getInterfaceHash(std::string* out) {
    *out = hash;
    return ndk::ScopedAStatus::ok();
}

ndk::SpAIBinder BnDumpstateDevice::createBinder() {
    std::shared_ptr<IDumpstateDevice> device =
            std::static_pointer_cast<IDumpstateDevice>(shared_from_this());
    return ndk::SpAIBinder(new AIBinder{kMethods, std::move(device)});
}

}  // namespace aidl::android::hardware::dumpstate
