#include "service_client.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <filesystem>
#include <iterator>

#include "pattern.h"
#include "processes.h"

namespace fs = std::filesystem;

ServiceClient::ServiceClient(const std::string& bus_address) {
    EXPECT_GE(sd_bus_new(&bus_), 0);
    EXPECT_GE(sd_bus_set_address(bus_, bus_address.c_str()), 0);
    EXPECT_GE(sd_bus_set_bus_client(bus_, 1), 0);
    EXPECT_GE(sd_bus_start(bus_), 0) << bus_address;
}

ServiceClient::~ServiceClient() {
    sd_bus_flush_close_unref(bus_);
}

sd_bus_message* ServiceClient::BoardCall(const std::vector<int>& fds, int mode) {
    sd_bus_message* call = nullptr;
    EXPECT_GE(
            sd_bus_message_new_method_call(bus_, &call, kName, "/default", kName, "dumpstateBoard"),
            0);
    sd_bus_message_open_container(call, 'a', "h");
    for (const int fd : fds) EXPECT_GE(sd_bus_message_append(call, "h", fd), 0);
    sd_bus_message_close_container(call);
    sd_bus_message_append(call, "ix", mode, int64_t{1});
    return call;
}

std::string ServiceClient::Board(const std::vector<int>& fds, int mode) {
    return Send(BoardCall(fds, mode));
}

void ServiceClient::Post(const std::vector<int>& fds) {
    sd_bus_message* const call = BoardCall(fds, 0);
    EXPECT_GE(sd_bus_send(bus_, call, nullptr), 0);
    sd_bus_message_unref(call);
}

std::string ServiceClient::Name() const {
    const char* name = "";
    EXPECT_GE(sd_bus_get_unique_name(bus_, &name), 0);
    return name;
}

bool ServiceClient::IsOnTheBus(const std::string& name) {
    return sd_bus_get_name_creds(bus_, name.c_str(), 0, nullptr) >= 0;
}

std::string ServiceClient::Send(sd_bus_message* call) {
    sd_bus_error error{};
    sd_bus_message* reply = nullptr;
    sd_bus_call(bus_, call, UINT64_MAX, &error, &reply);
    std::string result =
            error.name == nullptr ? "" : std::string(error.name) + ": " + error.message;
    sd_bus_error_free(&error);
    sd_bus_message_unref(reply);
    sd_bus_message_unref(call);
    return result;
}

std::string ServiceClient::Report(std::string* bundle) {
    std::vector<int> fds{memfd_create("report", MFD_CLOEXEC)};
    if (bundle != nullptr) fds.push_back(memfd_create("bundle", MFD_CLOEXEC));
    EXPECT_EQ(Board(fds), "");
    const auto take = [&fds] {
        std::string content = ReadFd(fds.back());
        close(fds.back());
        fds.pop_back();
        return content;
    };
    if (bundle != nullptr) *bundle = take();
    return take();
}

pid_t ServiceClient::Pid() {
    uint32_t pid = 0;
    sd_bus_message* reply = nullptr;
    EXPECT_GE(sd_bus_call_method(bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                 "org.freedesktop.DBus", "GetConnectionUnixProcessID", nullptr,
                                 &reply, "s", kName),
              0);
    sd_bus_message_read(reply, "u", &pid);
    sd_bus_message_unref(reply);
    return static_cast<pid_t>(pid);
}

std::string ServiceClient::Holdings() {
    Get<int32_t>("getInterfaceVersion", "i");
    const std::string pid = std::to_string(Pid());
    const fs::path process = "/proc/" + pid;
    const auto count = [&process](const char* kind) {
        const fs::directory_iterator entries(process / kind);
        return std::distance(begin(entries), end(entries));
    };
    // A thread that has read a file waits a moment for the next one.
    Await([&] { return count("task") <= 1 + BACKGROUND_THREADS; });
    std::string holdings = "pid " + pid;
    for (const char* kind : {"fd", "task"}) {
        holdings += std::string(" ") + kind + " " + std::to_string(count(kind));
    }
    return holdings + " children " + ReadFile(process / "task" / pid / "children");
}

sd_bus_message* ServiceClient::GetReply(const char* method) {
    sd_bus_message* reply = nullptr;
    EXPECT_GE(sd_bus_call_method(bus_, kName, "/default", kName, method, nullptr, &reply, ""), 0);
    return reply;
}

void ServiceClient::Fail(const char* method) {
    ADD_FAILURE() << method << " replied with something else";
}

std::vector<std::string> Titles(const std::string& report) {
    return Matches(report, "(?:^|\n)------ (.*) \\(.*\\) ------(?=\n)");
}
