#pragma once

#include <vector>

// Runs another program, its standard output going to `out`, waits for its end and returns its peak
// memory in KiB. Ends this process when the program can't be run or fails: what it was measured for
// would be worth nothing.
long RunProgram(const std::vector<const char*>& argv, int out);
