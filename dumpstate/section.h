#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <initializer_list>
#include <optional>
#include <span>

#include "protect.h"

namespace aidl::android::hardware::dumpstate {

using tev::dumpstate::protect;

// Whom an entry is for. User builds leave out what is for development; the build type is asked
// anew by each row that says so, and a row that belongs to the one above goes by its answer.
enum class Builds { kEvery, kDevelopment, kAsTheRowAbove };

// One entry of the report: a command run under a title, or a file copied under one. The makers
// below build the rows of a section's table; adding an entry to the report is adding a row.
struct Entry {
    const char* title;
    const char* file;                             // null for a command
    std::array<const char*, 6> command;           // argv, filled up with nulls; [0] is absolute
    std::optional<std::chrono::seconds> timeout;  // of a command; without, the platform's own
    Builds builds;

    constexpr Entry On(Builds some) const { return {title, file, command, timeout, some}; }
};

constexpr Entry File(const char* title, const char* path) {
    return {title, path, {}, {}, Builds::kEvery};
}

constexpr Entry Command(const char* title, std::initializer_list<const char*> argv,
                        std::optional<std::chrono::seconds> timeout = {}) {
    Entry entry{title, nullptr, {}, timeout, Builds::kEvery};
    std::copy(argv.begin(), argv.end(), entry.command.begin());
    return entry;
}

constexpr Entry Script(const char* title, const char* script,
                       std::optional<std::chrono::seconds> timeout = {}) {
    return Command(title, {"/vendor/bin/sh", "-c", script}, timeout);
}

// Writes the entries to fd in order. A failing entry shows its failure in the report and the next
// one follows.
void dumpEntries(int fd, std::span<const Entry> entries);

// Whether what is for development only is to be left out. When that can't be found out it is: what
// users' devices keep to themselves stays there.
bool isUserBuild();

}  // namespace aidl::android::hardware::dumpstate
