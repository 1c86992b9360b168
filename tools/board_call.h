#pragma once

#include <string>

// One report, from the call to its end.
struct BoardOptions {
    std::string report = "report.txt";
    std::string bundle = "bundle.tar";
    bool no_bundle = false;
    int mode = 0;
};

// Calls the service and receives the report, and the bundle unless there is to be none, into their
// files, with progress and a closing line on standard output and what went wrong on standard error.
// Returns the exit status: 0 when the call was accepted and both files are whole, else 1.
int RunBoardReport(const BoardOptions& options);
