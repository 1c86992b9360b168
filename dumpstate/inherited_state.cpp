#include "inherited_state.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <initializer_list>

namespace aidl::android::hardware::dumpstate {

void resetInheritedState() {
    // A reader that goes away and a file at its limit are failed writes, never the end of the
    // process. Caught and not ignored: programs would inherit that, and not every library that
    // starts some takes it back. The write itself fails either way; a call that such a signal from
    // elsewhere finds waiting goes on where the kernel can let it.
    struct sigaction failed_write {};
    failed_write.sa_handler = [](int) {};
    failed_write.sa_flags = SA_RESTART;
    sigemptyset(&failed_write.sa_mask);
    for (const int number : {SIGPIPE, SIGXFSZ}) sigaction(number, &failed_write, nullptr);
    // How a command ended is for this process to ask.
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
