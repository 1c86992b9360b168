#pragma once

#include <android/binder_ibinder.h>

extern "C" {

// Puts the binder on the system bus under "NAME/PATH": object /PATH under the bus name NAME. The
// service manager is the bus daemon, which starts the process on the first call. The bus keeps a
// reference of its own until the process ends. Returns STATUS_OK or the negative errno: -EEXIST
// when the name is taken, others when there is no bus or it refuses. Main thread only, once.
binder_status_t AServiceManager_registerLazyService(AIBinder* binder, const char* instance);

}  // extern "C"
