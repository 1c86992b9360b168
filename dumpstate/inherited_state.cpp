#include "inherited_state.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <initializer_list>

namespace aidl::android::hardware::dumpstate {

void resetInheritedState() {
    // A reader that goes away and a file at its limit are failed writes, never the end of the
    // process. How a command ended is for this process to ask.
    for (const int failed_write : {SIGPIPE, SIGXFSZ}) std::signal(failed_write, SIG_IGN);
    std::signal(SIGCHLD, SIG_DFL);

    // What is put together on the data partition are logs of a whole device: nobody but this user
    // may read them there, or put others into the caller's bundle.
    umask(S_IRWXG | S_IRWXO);

    // Or the next file to be opened, a caller's report perhaps, would become standard output or
    // error, and get what commands print and the log. The lowest free number is the missing one;
    // these three are for children too.
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(standard, F_GETFD) == -1) open("/dev/null", O_RDWR);
    }
}

}  // namespace aidl::android::hardware::dumpstate
