#include "program.h"

#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

ProgramEnd SpawnAndWait(const std::vector<std::string>& argv, int out, int err) {
    std::vector<char*> arguments;
    for (const std::string& word : argv) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
    if (err != STDERR_FILENO) posix_spawn_file_actions_adddup2(&actions, err, STDERR_FILENO);
    pid_t pid = -1;
    ProgramEnd end;
    if (posix_spawn(&pid, arguments[0], &actions, nullptr, arguments.data(), environ) == 0) {
        rusage usage{};
        wait4(pid, &end.status, 0, &usage);
        end.peak_kib = usage.ru_maxrss;
    }
    posix_spawn_file_actions_destroy(&actions);
    return end;
}

long RunProgram(const std::vector<std::string>& argv, int out, int exit_status) {
    const ProgramEnd end = SpawnAndWait(argv, out);
    if (!WIFEXITED(end.status) || WEXITSTATUS(end.status) != exit_status) {
        std::fprintf(stderr, "%s: wait status %d\n", argv[0].c_str(), end.status);
        std::exit(EXIT_FAILURE);
    }
    return end.peak_kib;
}

double KibibytesIn(const std::string& path, const std::string& word) {
    std::ifstream file(path);
    double size = 0;
    for (std::string read; file >> read && read != word;) {
    }
    file >> size;
    return size;
}
