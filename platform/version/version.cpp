#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

// A program that is installed can be asked which one it is, but the service has no command line, on
// a device as here: its main reads no arguments. So this answers before main, and a device build,
// which leaves the stand-ins out, has nothing to define or to leave out. The C library hands the
// arguments of main to constructors too.
[[gnu::constructor]] static void AnswerVersion(int count, char** arguments) {
    if (count != 2 || std::string_view(arguments[1]) != "--version") return;
    _exit(dprintf(STDOUT_FILENO, "dumpstate-service " DUMPSTATE_VERSION "\n") < 0 ? EXIT_FAILURE
                                                                                  : EXIT_SUCCESS);
}
