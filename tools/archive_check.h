#pragma once

#include <cstdint>
#include <string>

// What a look through a finished bundle shows.
struct ArchiveCheck {
    uint64_t entries = 0;
    std::string fault;  // "" when the archive is whole
};

// Reads the tar archive at path from its first entry to its end mark. A path that is no regular
// file can't be read again and counts as whole.
ArchiveCheck CheckArchive(const std::string& path);
