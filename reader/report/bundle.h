#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace reader {

// What a look through a finished log bundle shows.
struct Bundle {
    struct Member {
        std::string name;  // "./bluetooth/btsnoop_hci_vnd_004.log"
        uint64_t size;
        bool directory;
    };
    std::vector<Member> members;  // as they stand in the archive
    std::string fault;            // "" when the archive is whole
};

// Reads the tar archive at path from its first entry to its end mark. A path that is no regular
// file can't be read again and counts as whole.
Bundle ReadBundle(const std::string& path);

}  // namespace reader
