#include "dumpstate_client.h"

#include <poll.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "temporary_file.h"

namespace {

using reader::Reason;

constexpr char kName[] = "android.hardware.dumpstate.IDumpstateDevice";
constexpr char kPath[] = "/default";
constexpr uint64_t kNoTimeout = UINT64_MAX;

std::string WentAway(const std::string& reason) {
    return "the service or the bus went away during the call (" + reason +
           "); its log may say why" + WhereTheLogIs();
}

std::string Explain(const sd_bus_error& error) {
    const std::string_view name = error.name;
    const std::string message = error.message == nullptr ? "" : error.message;
    const auto is = [name](std::string_view one) {
        return name == "org.freedesktop.DBus.Error." + std::string(one);
    };
    if (is("ServiceUnknown") || is("NameHasNoOwner") || is("Spawn.ServiceNotFound")) {
        return "no dumpstate service on this bus: it has neither a running one nor an activation "
               "file for it (" +
               message + ")";
    }
    if (name.starts_with("org.freedesktop.DBus.Error.Spawn.")) {
        return "the bus could not start the dumpstate service (" + message +
               "); the bus daemon's log says why" + WhereTheLogIs();
    }
    if (is("AccessDenied")) {
        return "the bus doesn't let you call the dumpstate service: only root and the members of "
               "the group " DUMPSTATE_GROUP " may";
    }
    if (is("InvalidArgs")) return "the service refused the call: " + message;
    if (is("NoReply") || is("Disconnected")) {
        return WentAway(message);
    }
    return "the call failed: " + std::string(name) + ": " + message;
}

int OnReply(sd_bus_message* reply, void* outcome, sd_bus_error* /*ret_error*/) {
    const sd_bus_error* const error = sd_bus_message_get_error(reply);
    *static_cast<std::optional<std::string>*>(outcome) = error == nullptr ? "" : Explain(*error);
    return 0;
}

}  // namespace

// On a host the service writes where the bus daemon does, whose child it is.
std::string WhereTheLogIs() {
    return " (journalctl -u dbus shows it, of the simulated wearable ./dev logcat)";
}

DumpstateClient::~DumpstateClient() {
    sd_bus_flush_close_unref(bus_);
}

std::string DumpstateClient::Connect() {
    const int result = sd_bus_open_system(&bus_);
    if (result >= 0) return "";
    const char* const address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
    return "cannot reach the system bus" +
           (address == nullptr ? "" : " at " + std::string(address)) + ": " + Reason(-result) +
           "; is a bus daemon running, and does DBUS_SYSTEM_BUS_ADDRESS name it?";
}

std::string DumpstateClient::Call(const char* method, sd_bus_message** reply, const char* types,
                                  int argument) {
    sd_bus_error error{};
    const int result = *types == '\0' ? sd_bus_call_method(bus_, kName, kPath, kName, method,
                                                           &error, reply, "")
                                      : sd_bus_call_method(bus_, kName, kPath, kName, method,
                                                           &error, reply, types, argument);
    std::string sentence;
    if (result < 0) sentence = error.name == nullptr ? Reason(-result) : Explain(error);
    sd_bus_error_free(&error);
    return sentence;
}

std::string DumpstateClient::GetVerbose(bool* enabled) {
    sd_bus_message* reply = nullptr;
    std::string sentence = Call("getVerboseLoggingEnabled", &reply, "", 0);
    int value = 0;
    if (sentence.empty() && sd_bus_message_read(reply, "b", &value) < 0) {
        sentence = "the service's answer is not a boolean";
    }
    sd_bus_message_unref(reply);
    *enabled = value != 0;
    return sentence;
}

std::string DumpstateClient::SetVerbose(bool enabled) {
    return Call("setVerboseLoggingEnabled", nullptr, "b", enabled ? 1 : 0);
}

std::string DumpstateClient::StartReport(const std::vector<int>& fds, int mode) {
    sd_bus_message* call = nullptr;
    int result = sd_bus_message_new_method_call(bus_, &call, kName, kPath, kName, "dumpstateBoard");
    if (result >= 0) result = sd_bus_message_open_container(call, SD_BUS_TYPE_ARRAY, "h");
    for (const int one : fds) {
        if (result >= 0) result = sd_bus_message_append(call, "h", one);
    }
    if (result >= 0) result = sd_bus_message_close_container(call);
    if (result >= 0) result = sd_bus_message_append(call, "ix", mode, int64_t{0});
    if (result >= 0) {
        result = sd_bus_call_async(bus_, nullptr, call, OnReply, &outcome_, kNoTimeout);
    }
    if (result >= 0) result = sd_bus_flush(bus_);
    sd_bus_message_unref(call);
    return result < 0 ? "cannot send the call: " + Reason(-result) : "";
}

const std::optional<std::string>& DumpstateClient::Process() {
    int result;
    do {
        result = sd_bus_process(bus_, nullptr);
    } while (result > 0);
    if (result < 0 && !outcome_) {
        outcome_ = WentAway(Reason(-result));
    }
    return outcome_;
}

short DumpstateClient::events() const {
    const int events = sd_bus_get_events(bus_);
    return events < 0 ? short{POLLIN} : static_cast<short>(events);
}

int DumpstateClient::TimeoutMillis(int at_most) const {
    uint64_t until = 0;
    if (sd_bus_get_timeout(bus_, &until) < 0 || until == kNoTimeout) return at_most;
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const auto now_us = static_cast<uint64_t>(now.tv_sec) * 1'000'000 +
                        static_cast<uint64_t>(now.tv_nsec) / 1000;
    if (until <= now_us) return 0;
    return static_cast<int>(
            std::min<uint64_t>((until - now_us) / 1000 + 1, static_cast<uint64_t>(at_most)));
}
