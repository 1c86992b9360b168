#pragma once

#include <cstdint>

extern "C" {

// How many threads may serve calls beside those that join. Only 0 is had on this host: false for
// any other number.
bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t count);

// Serves calls on this thread, one at a time. Returns when the bus is gone.
void ABinderProcess_joinThreadPool();

}  // extern "C"
