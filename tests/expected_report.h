#pragma once

#include <string>
#include <vector>

// What a whole report consists of, from a table (data/board_report.tsv) that was written down apart
// from the code. A row's first column says when it is there: "-" always, "development N" not on
// user builds, "bundle" with a bundle only; "build type?" and "sleep" are no entries.

// As the recording platform writes requests down. The build type is asked once where each group of
// development rows begins.
std::vector<std::string> ExpectedRequests(bool user, bool bundle);

std::vector<std::string> ExpectedTitles(bool user, bool bundle);
