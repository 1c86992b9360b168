// Writes the modem's file system out while vendor.sys.modem.diag.efsdump asks for it, and takes it
// away afterwards, as the simulated wearable's remote file system service.

#include <android-base/properties.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <thread>

namespace {

namespace fs = std::filesystem;

constexpr char kRequest[] = "vendor.sys.modem.diag.efsdump";
constexpr char kDump[] = "/data/vendor/rfs/mpss/modem_efs";
constexpr std::chrono::milliseconds kTimeToWrite{500};

void WriteDump() {
    const struct {
        const char* path;
        const char* content;
    } files[] = {
            {"nv/item_files/modem/lte/common/efs_version", "7\n"},
            {"nv/item_files/ims/qipcall_config", "amr_mode=7 video=0\n"},
            {"nv/reg_files/modem/nas/plmn_mode", "auto\n"},
            {"policyman/carrier_policy.xml", "<policy name=\"default\" version=\"12\"/>\n"},
            {"err/err00.txt", "lte_ml1_mgr.c:1742 assertion snoop failed\n"},
    };
    std::error_code failed;
    for (const auto& file : files) {
        const fs::path path = fs::path(kDump) / file.path;
        fs::create_directories(path.parent_path(), failed);
        std::ofstream(path) << file.content;
    }
}

}  // namespace

int main() {
    android::base::SetProperty(kRequest, "false");
    for (;;) {
        android::base::WaitForProperty(kRequest, "true");
        std::this_thread::sleep_for(kTimeToWrite);
        WriteDump();
        android::base::WaitForProperty(kRequest, "false");
        std::error_code failed;
        fs::remove_all(kDump, failed);
    }
}
