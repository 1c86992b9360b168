#include <cstdio>

#include "board_call.h"

namespace {

int Refuse(const char* what) {
    std::fprintf(
            stderr,
            "boardreport: this one is built to read reports alone (READER_ONLY), and can't %s: "
            "that takes one built with libsystemd, and the service on the bus. "
            "'boardreport summary FILE' reads a finished report; --help lists the other words\n",
            what);
    return 1;
}

}  // namespace

int RunBoardReport(const BoardOptions& /*options*/) {
    return Refuse("ask for one");
}

int RunVerbose(const std::string& /*word*/) {
    return Refuse("switch or show verbose logging");
}
