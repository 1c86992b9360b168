#pragma once

#include <string>

// One report, from the call to its end.
struct BoardOptions {
    std::string report = "report.txt";  // "-" is standard output, here and below
    std::string bundle = "bundle.tar";
    bool no_bundle = false;
    std::string page;  // the file that shows the report; "" for none
    int mode = 0;
};

// Calls the service and receives the report, and the bundle unless there is to be none, into their
// files, and makes the page of what came. Progress, a closing line and what went wrong go to
// standard error. Returns the exit status: 0 when the call was accepted and all files are whole,
// else 1.
int RunBoardReport(const BoardOptions& options);

// Switches verbose logging "on" or "off", unless the word is "show", and prints what it is then.
// Returns the exit status.
int RunVerbose(const std::string& word);
