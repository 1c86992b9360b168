#pragma once

#include <unistd.h>

#include <string>
#include <vector>

// How a program ended, as wait(2) tells; -1 is that of one that can't be run.
struct ProgramEnd {
    int status = -1;
    long peak_kib = 0;
};

// Runs another program and waits for its end, and does nothing else: the least that running one can
// cost.
ProgramEnd SpawnAndWait(const std::vector<std::string>& argv, int out, int err = STDERR_FILENO);

// The same, returning the program's peak memory in KiB. Ends this process when the program can't be
// run or has another exit status: what it was measured for would be worth nothing.
long RunProgram(const std::vector<std::string>& argv, int out, int exit_status = 0);

// The number after the word in a file of /proc, such as VmHWM: in a process's status.
double KibibytesIn(const std::string& path, const std::string& word);
