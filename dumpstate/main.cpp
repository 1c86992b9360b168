#include <android-base/logging.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "dumpstate.h"
#include "inherited_state.h"

using aidl::android::hardware::dumpstate::Dumpstate;
using aidl::android::hardware::dumpstate::resetInheritedState;

int main() {
    // Whoever started this process may have left signals ignored and standard descriptors closed.
    // Before anything else: what is opened first would get the number of a closed one.
    resetInheritedState();

    // Reports share the staging directory and the modem's logger, and neither is locked: with no
    // threads beside this one, a second call is served after the first and two reports never
    // overlap.
    ABinderProcess_setThreadPoolMaxThreadCount(0);

    const std::shared_ptr<Dumpstate> service = ndk::SharedRefBase::make<Dumpstate>();
    const std::string instance = std::string() + Dumpstate::descriptor + "/default";
    const binder_status_t status =
            AServiceManager_registerLazyService(service->asBinder().get(), instance.c_str());

    // A service that nobody can call is no service: a name that is taken, or no service manager to
    // give it out, ends the process here, with the status in the log.
    CHECK_EQ(status, STATUS_OK);

    ABinderProcess_joinThreadPool();
    return EXIT_FAILURE;  // joining doesn't return while the service manager is there
}
