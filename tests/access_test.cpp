// Who may call, by the policy as it is installed, on a bus that lets nobody call anybody else.

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "processes.h"
#include "service_client.h"

namespace fs = std::filesystem;

namespace {

// Everybody here is one user, the one who runs the test: what the names of the policy stand for is
// changed instead. That user must also own the service's name, which a service of root's may.
constexpr char kBus[] = R"(<busconfig>
  <listen>unix:path=/tmp/access/bus</listen>
  <auth>EXTERNAL</auth>
  <servicedir>/vendor/etc/bus</servicedir>
  <policy context="default">
    <allow user="*"/>
    <deny own="*"/>
    <deny send_type="method_call"/>
    <allow send_destination="org.freedesktop.DBus"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
  </policy>
  <include>/tmp/access/policy.conf</include>
  <policy context="mandatory">
    <allow own="android.hardware.dumpstate.IDumpstateDevice"/>
  </policy>
</busconfig>
)";

// Neither root nor the service's own user is asked for where the policy lets the caller through.
TEST(AccessTest, CallerMayBeAnyUser) {
    if (getuid() != 0) GTEST_SKIP() << "only root can be two users";
    std::ofstream("/etc/passwd", std::ios::app) << "other:x:65534:65534::/:\n";
    ASSERT_EQ(seteuid(65534), 0);
    const std::string answer = ServiceClient().Board({STDERR_FILENO}, 8);
    ASSERT_EQ(seteuid(0), 0);
    EXPECT_EQ(answer, "org.freedesktop.DBus.Error.InvalidArgs: Invalid mode");
}

TEST(AccessTest, OnlyRootAndTheGroupMayCall) {
    fs::create_directory("/tmp/access");
    fs::copy(INSTALLED_POLICY, "/tmp/access/policy.conf");  // from where not everybody may look
    std::ofstream("/etc/group").close();
    BeAnOrdinaryUser({"/tmp/access", "/etc/passwd", "/etc/group"});
    std::ofstream("/tmp/access/bus.conf") << kBus;
    const std::string address = "unix:path=/tmp/access/bus";
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);  // for the service

    const uid_t us = getuid();
    const gid_t our_group = getgid();
    const std::string served = "org.freedesktop.DBus.Error.InvalidArgs: Invalid mode";
    const struct {
        const char* caller;
        uid_t root;
        gid_t group;
        std::string answer;
    } cases[] = {{"a stranger", 0, our_group + 1, "org.freedesktop.DBus.Error.AccessDenied: "},
                 {"a member of the group", 0, our_group, served},
                 {"root", us, our_group + 1, served}};
    for (const auto& access : cases) {
        std::ofstream("/etc/passwd") << "root:x:" << access.root << ":0::/:\n"
                                     << "us:x:" << us << ":" << our_group << "::/:\n";
        std::ofstream("/etc/group") << DUMPSTATE_GROUP ":x:" << access.group << ":\n";
        const std::string listens = std::string("/tmp/access/") + access.caller;
        pid_t bus = Spawn({"/usr/bin/dbus-daemon", "--config-file=/tmp/access/bus.conf", "--nofork",
                           "--nopidfile", "--print-address=1"},
                          "/tmp/access/log", listens);
        Await([&] { return !ReadFile(listens).empty(); });
        const std::string answer = ServiceClient(address).Board({STDERR_FILENO}, 8);
        EXPECT_TRUE(answer.starts_with(access.answer)) << access.caller << ": " << answer;
        EndChild(bus, SIGTERM);
    }
}

}  // namespace
