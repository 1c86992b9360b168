#pragma once

#include <chrono>

namespace tev::dumpstate {

// Lets this much time pass on the calling thread, whatever signals come meanwhile: those that a
// handler might be for wait until it is over, those that ask a process to end don't.
void pauseFor(std::chrono::seconds time);

}  // namespace tev::dumpstate
