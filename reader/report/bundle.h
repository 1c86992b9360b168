#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace reader {

// What a look through a finished log bundle shows.
struct Bundle {
    struct Member {
        std::string name;  // "./bluetooth/btsnoop_hci_vnd_004.log"
        uint64_t size;
        bool directory;
        std::optional<int64_t> modified;  // seconds since 1970, UTC; nothing for an archive's 0
    };
    std::vector<Member> members;  // as they stand in the archive
    std::string fault;            // "" when the archive is whole
};

// Is told a file's data in their order, by the member's index, for as long as it returns true.
using BundleData = std::function<bool(size_t member, uint64_t offset, std::string_view data)>;

// Reads the tar archive at path from its first entry to its end mark. A path that is no regular
// file can't be read again and isn't read.
Bundle ReadBundle(const std::string& path, const BundleData& data = {});

}  // namespace reader
