#include "pause.h"

#include <signal.h>
#include <unistd.h>

#include <initializer_list>

namespace tev::dumpstate {

// Sleeping on after a signal alone would not do: what is left is told in whole seconds, rounded
// down.
void pauseFor(std::chrono::seconds time) {
    sigset_t waiting;
    sigset_t before;
    sigfillset(&waiting);
    for (const int ending : {SIGTERM, SIGINT, SIGQUIT, SIGHUP}) sigdelset(&waiting, ending);
    pthread_sigmask(SIG_BLOCK, &waiting, &before);
    for (auto left = static_cast<unsigned>(time.count()); left > 0;) left = sleep(left);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace tev::dumpstate
