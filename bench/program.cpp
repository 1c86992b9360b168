#include "program.h"

#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

long RunProgram(const std::vector<const char*>& argv, int out) {
    std::vector<char*> arguments;
    for (const char* argument : argv) arguments.push_back(const_cast<char*>(argument));
    arguments.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
    pid_t pid = -1;
    int status = -1;
    const int error = posix_spawn(&pid, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    struct rusage usage {};
    if (error == 0) wait4(pid, &status, 0, &usage);
    if (status != 0) {
        std::fprintf(stderr, "%s: error %d, wait status %d\n", arguments[0], error, status);
        std::exit(EXIT_FAILURE);
    }
    return usage.ru_maxrss;
}
