#pragma once

#include <string>
#include <vector>

// What the service runs and reads for a report, as its own code asks for it. A program that links
// this has it in the place of the platform's sections.
struct RecordedReport {
    struct Step {
        std::vector<std::string> command;  // empty where a file is read
        std::string file;
    };

    // Has the service make a report without a bundle, of which nothing is run; the waits are
    // waited.
    RecordedReport();
    // Runs and reads the same with nothing around it: no headers, no time-outs, no guards.
    void Replay(int out) const;

    std::vector<Step> steps;
};
