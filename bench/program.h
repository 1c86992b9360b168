#pragma once

#include <initializer_list>

// Runs another program, its standard output going to `out`, and waits for its end. Ends this
// process when the program can't be run or fails: what it was measured for would be worth nothing.
void RunProgram(std::initializer_list<const char*> argv, int out);
