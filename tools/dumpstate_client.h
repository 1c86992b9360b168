#pragma once

#include <systemd/sd-bus.h>

#include <optional>
#include <string>
#include <vector>

// " (how to see the service's log)", to put behind a sentence that names it.
std::string WhereTheLogIs();

// The caller's side of the dumpstate service on the system bus. One thread.
class DumpstateClient {
  public:
    ~DumpstateClient();
    DumpstateClient() = default;
    DumpstateClient(const DumpstateClient&) = delete;
    DumpstateClient& operator=(const DumpstateClient&) = delete;

    // These three return "" or a sentence that tells what is wrong and what to do.
    std::string Connect();
    std::string GetVerbose(bool* enabled);
    std::string SetVerbose(bool enabled);

    // Sends the request for a report; the descriptors may be closed afterwards. No time-out: a
    // report takes as long as its sections.
    std::string StartReport(const std::vector<int>& fds, int mode);

    // Does what is to be done on the bus without blocking. The outcome of the report once there is
    // one: "" when it was accepted, else the sentence.
    const std::optional<std::string>& Process();

    // What to poll(2) for until the next Process(), at most this long.
    int fd() const { return sd_bus_get_fd(bus_); }
    short events() const;
    int TimeoutMillis(int at_most) const;

  private:
    std::string Call(const char* method, sd_bus_message** reply, const char* types, int argument);

    sd_bus* bus_ = nullptr;
    std::optional<std::string> outcome_;
};
