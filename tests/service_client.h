#pragma once

#include <sys/types.h>
#include <systemd/sd-bus.h>

#include <string>
#include <type_traits>
#include <vector>

// A caller of the service as a process of its own, over a connection to a bus that starts it on
// demand. What should work and doesn't fails the running test. One thread a client.
class ServiceClient {
  public:
    static constexpr char kName[] = "android.hardware.dumpstate.IDumpstateDevice";

    explicit ServiceClient(const std::string& bus_address = "unix:path=/run/bus");
    ~ServiceClient();
    ServiceClient(const ServiceClient&) = delete;
    ServiceClient& operator=(const ServiceClient&) = delete;

    // "" when the call was accepted, else the error's name and sentence.
    std::string Board(const std::vector<int>& fds, int mode = 0);
    std::string Send(sd_bus_message* call);  // takes the message
    // Calls without waiting for the answer.
    void Post(const std::vector<int>& fds);
    std::string Name() const;  // on the bus
    bool IsOnTheBus(const std::string& name);
    // A report's text, and its bundle where one is wanted.
    std::string Report(std::string* bundle = nullptr);

    template <typename T>
    T Get(const char* method, const char* type) {
        sd_bus_message* const reply = GetReply(method);
        // The library yields text that is the reply's, and booleans as int.
        std::conditional_t<std::is_same_v<T, std::string>, const char*, T> read{};
        if (sd_bus_message_read(reply, type, &read) <= 0) Fail(method);
        T value(read);
        sd_bus_message_unref(reply);
        return value;
    }

    // The service that runs now.
    pid_t Pid();
    // Its id, descriptors, threads and children, once it has let go of the last call.
    std::string Holdings();

  protected:
    sd_bus* bus_ = nullptr;

  private:
    sd_bus_message* BoardCall(const std::vector<int>& fds, int mode);
    sd_bus_message* GetReply(const char* method);
    static void Fail(const char* method);
};

// The titles of a report's sections.
std::vector<std::string> Titles(const std::string& report);
