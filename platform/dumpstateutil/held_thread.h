#pragma once

#include <functional>
#include <memory>
#include <string>

namespace android::os::dumpstate {

// A driver or a file system may hold whoever opens, reads or runs its file for as long as it likes,
// and no signal need help. Such calls are made on threads of their own, which share with the report
// only what they own together and may outlast it.

// Runs the task on a detached thread, with every signal blocked: it takes none that is meant for
// the process, and a lost reader is EPIPE. Returns an errno when there is no thread to be had.
int StartDetached(std::function<void()> task);

// Nobody waits for a thread that the path holds any more: as long as what the thread owns lives, a
// second one would only be held as well.
void RememberHeld(const std::string& path, const std::shared_ptr<void>& owned_by_thread);
bool IsHeld(const std::string& path);

}  // namespace android::os::dumpstate
