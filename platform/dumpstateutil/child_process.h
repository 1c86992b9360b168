#pragma once

#include <android-base/unique_fd.h>
#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/bounded_write.h"

namespace android::os::dumpstate {

// One program running as the leader of a process group of its own. Destruction leaves no member of
// the group, no program that has left it for another group, and no zombie behind, unless the kernel
// can't end the program (it is stuck in a driver): such a one is reaped by a later call, when the
// driver has let it go.
class ChildProcess {
  public:
    // Starts the program with output_fd as standard output and error, on another thread, as the
    // file that it is in may hold whoever runs it. Returns an errno on failure: ETIMEDOUT when it
    // had not begun by the deadline (it is ended as soon as it does), EALREADY while the file still
    // holds the thread of such a one.
    int Start(const std::vector<std::string>& command, int output_fd, platform::Deadline deadline);
    ~ChildProcess();

    // How the program ended, as in waitid(2): CLD_EXITED with an exit status, else a signal.
    struct End {
        bool exited;
        int status;
    };
    // Waits for the end until the deadline. Nothing is reaped: the group's number stays taken, so
    // that Stop() and destruction can't hit another group.
    std::optional<End> WaitUntil(platform::Deadline deadline) const;

    // Asks the group to terminate, gives it a short grace, and kills it.
    void Stop() const;

  private:
    void Signal(int signal) const;

    pid_t pid_ = -1;
    base::unique_fd pidfd_;
};

}  // namespace android::os::dumpstate
