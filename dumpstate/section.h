#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <initializer_list>
#include <span>

namespace aidl::android::hardware::dumpstate {

// One entry of the report: a command run under a title, or a file copied under one. The makers
// below build the rows of a section's table; adding an entry to the report is adding a row.
struct Entry {
    static constexpr int64_t kDefaultTimeout = 0;
    static constexpr int kEveryBuild = 0;

    const char* title;
    const char* file;                    // null for a command
    std::array<const char*, 6> command;  // argv, filled up with nulls; [0] is an absolute path
    int64_t timeout_seconds;             // of a command, or kDefaultTimeout for the platform's own

    // kEveryBuild, or the number of a group of rows that user builds leave out. The build type is
    // asked once where a group begins.
    int development_group;
};

constexpr Entry File(const char* title, const char* path, int development_group = 0) {
    return {title, path, {}, Entry::kDefaultTimeout, development_group};
}

constexpr Entry Command(const char* title, std::initializer_list<const char*> argv,
                        int64_t timeout_seconds = Entry::kDefaultTimeout,
                        int development_group = Entry::kEveryBuild) {
    Entry entry{title, nullptr, {}, timeout_seconds, development_group};
    std::copy(argv.begin(), argv.end(), entry.command.begin());
    return entry;
}

constexpr Entry Script(const char* title, const char* script,
                       int64_t timeout_seconds = Entry::kDefaultTimeout,
                       int development_group = Entry::kEveryBuild) {
    return Command(title, {"/vendor/bin/sh", "-c", script}, timeout_seconds, development_group);
}

// Writes the entries to fd in order. A failing entry shows its failure in the report and the next
// one follows.
void dumpEntries(int fd, std::span<const Entry> entries);

}  // namespace aidl::android::hardware::dumpstate
