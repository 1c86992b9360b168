#pragma once

#include <string>
#include <vector>

#include "rules.h"

// Which files reports are judged by, beside what is built in.
struct RuleOptions {
    std::vector<std::string> checks;  // over those in the folders
    std::string baseline;             // "" for none
};

// Takes them and those in ~/.config/boardreport/checks.d/ and /etc/boardreport/checks.d/ into the
// rules. What is wrong in a file is said on standard error and costs that alone; 0, or the exit
// status where a named file can't be read at all.
int LoadRules(const RuleOptions& options, reader::Rules& rules);

// Lists the checks in force once the files are taken over those in the folders, each with its
// examples tried. 0 when nothing is wrong in them.
int PrintChecks(const std::vector<std::string>& files);

// Writes what is usual of the reports, or of the baselines among them, into the file.
int WriteBaseline(const std::vector<std::string>& files, const std::string& output);
