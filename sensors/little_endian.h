#pragma once

#include <cstdint>

// Integers as they travel: little-endian, unaligned, whatever the machine's own order is.

namespace tev::dumpstate {

inline uint32_t LoadU32(const void* from) {
    const auto* const bytes = static_cast<const unsigned char*>(from);
    return uint32_t{bytes[0]} | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 |
           uint32_t{bytes[3]} << 24;
}

inline uint64_t LoadU64(const void* from) {
    return LoadU32(from) |
           uint64_t{LoadU32(static_cast<const unsigned char*>(from) + sizeof(uint32_t))} << 32;
}

inline void StoreU32(void* to, uint32_t value) {
    auto* const bytes = static_cast<unsigned char*>(to);
    for (unsigned i = 0; i < sizeof(value); ++i) {
        bytes[i] = static_cast<unsigned char>(value >> (8 * i));
    }
}

}  // namespace tev::dumpstate
