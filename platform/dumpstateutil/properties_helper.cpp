#include <DumpstateUtil.h>
#include <android-base/properties.h>

namespace android::os::dumpstate {

bool PropertiesHelper::IsUserBuild() {
    return android::base::GetProperty("ro.build.type", "") == "user";
}

}  // namespace android::os::dumpstate
