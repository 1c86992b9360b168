#include "dumpstate.h"
#include "section.h"

namespace aidl::android::hardware::dumpstate {
namespace {

constexpr Entry kPower[] = {
        Script("Power Stats Times",
               "echo -n \"Boot: \" && /vendor/bin/uptime -s && echo -n \"Now: \" && date"),
        File("Power supply property battery", "/sys/class/power_supply/battery/uevent"),
        File("Power supply property bms", "/sys/class/power_supply/bms/uevent"),
        File("Power supply property sw5100_bms", "/sys/class/power_supply/sw5100_bms/uevent"),
        File("Power supply property usb", "/sys/class/power_supply/usb/uevent"),
        File("BMS", "/dev/logbuffer_ssoc"),
        File("TTF", "/dev/logbuffer_ttf"),
        File("TTF stats", "/sys/class/power_supply/battery/ttf_stats"),
        Script("TRICKLE-DEFEND Config",
               " cd /sys/devices/platform/soc/soc:norvel,battery/power_supply/battery/;"
               " for f in `ls bd_*` ; do echo \"$f: `cat $f`\" ; done"),
        Script("DWELL-DEFEND Config",
               " cd /sys/devices/platform/soc/soc:norvel,charger/;"
               " for f in `ls charge_s*` ; do echo \"$f: `cat $f`\" ; done"),
        Script("TEMP-DEFEND Config",
               " cd /sys/devices/platform/soc/soc:norvel,charger/;"
               " for f in `ls bd_*` ; do echo \"$f: `cat $f`\" ; done"),
        File("Charging table dump", "/d/norvel_battery/chg_raw_profile").On(Builds::kDevelopment),
        File("Charger Stats", "/sys/class/power_supply/battery/charge_details"),
        Script("Norvel Charger",
               "cd /sys/kernel/debug/norvel_charger/;"
               " for f in `ls pps_*` ; do echo \"$f: `cat $f`\" ; done")
                .On(Builds::kDevelopment),
        Script("Norvel Battery",
               "cd /sys/kernel/debug/norvel_battery/;"
               " for f in `ls ssoc_*` ; do echo \"$f: `cat $f`\" ; done")
                .On(Builds::kAsTheRowAbove),
        Script("nvotables", "cat /sys/kernel/debug/nvotables/*/status").On(Builds::kDevelopment),
        Script("QBG Interrupt Stats",
               "cd /sys/devices/platform/soc/1c40000.qcom,spmi/spmi-0/0-00/"
               "1c40000.qcom,spmi:qcom,pm5100@0:qpnp,qbg@4f00/;"
               " for f in sdam_interrupt_count sdam_time_since_last_interrupt;"
               " do echo \"$f: `cat $f`\" ; done"),
        Script("iio devices",
               " cd /sys/bus/iio/devices/;for d in `ls`; do cd $d; a=$(cat name); echo \" \";"
               " echo === device name: $a ===; for f in `ls in*_input` ;"
               " do a=$(cat $f 2>/dev/null); if [[ -n $a ]]; then echo $f: $a; fi; done;"
               " cd ../;  done; echo \"\""),
};

}  // namespace

void Dumpstate::dumpPowerSection(int fd) {
    dumpEntries(fd, kPower);
}

}  // namespace aidl::android::hardware::dumpstate
