#include "dumpstate.h"
#include "section.h"

namespace aidl::android::hardware::dumpstate {
namespace {

constexpr Entry kExtconStates[] = {
        Script("Extcon states",
               " cd /sys/class/extcon; for f in `ls` ; do echo \"`cat $f/name`:\";"
               " echo \"`cat $f/state`\"; echo; done"),
};

constexpr Entry kVelora[] = {
        File("Velora recent statuses",
             "/sys/devices/platform/soc/soc:norvel,velora/recent_statuses"),
        File("Velora moisture detect mitigation state",
             "/sys/devices/platform/soc/soc:norvel,velora/moisture_mitigation_state"),
        File("Velora event faking", "/d/soc:norvel,velora/event_faker/enabled")
                .On(Builds::kDevelopment),
        Script("Velora extcon spoofing",
               " cd /d/soc:norvel,velora/extcon_spoof &&"
               " for f in `ls` ; do echo \"$f: `cat $f`\"; done; echo")
                .On(Builds::kAsTheRowAbove),
        Script("Velora moisture detect mitigation parameters",
               " cd /d/soc:norvel,velora/moisture_detect_mitigation &&"
               " for f in `ls` ; do echo \"$f: `cat $f`\"; done; echo")
                .On(Builds::kAsTheRowAbove),
        Script("Velora periodic reauth parameters",
               " cd /d/soc:norvel,velora/periodic_reauth &&"
               " for f in `ls` ; do echo \"$f: `cat $f`\"; done; echo")
                .On(Builds::kAsTheRowAbove),
};

}  // namespace

void Dumpstate::dumpExtconStates(int fd) {
    dumpEntries(fd, kExtconStates);
}

void Dumpstate::dumpVelora(int fd) {
    dumpEntries(fd, kVelora);
}

}  // namespace aidl::android::hardware::dumpstate
