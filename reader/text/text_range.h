#pragma once

#include <cstdint>

namespace reader {

// Bytes of a report, by offset.
struct TextRange {
    uint64_t begin = 0;
    uint64_t end = 0;
    uint64_t size() const { return end - begin; }
    bool operator==(const TextRange&) const = default;
};

}  // namespace reader
