#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>

// Takes the fuzzer's input apart from its front. What is asked for beyond its end is 0 or empty.
class FuzzInput {
  public:
    FuzzInput(const uint8_t* data, size_t size) : rest_(data, size) {}

    bool empty() const { return rest_.empty(); }
    uint8_t Byte() {
        const std::span<const uint8_t> byte = Bytes(1);
        return byte.empty() ? uint8_t{0} : byte[0];
    }
    std::span<const uint8_t> Bytes(size_t count) {
        const std::span<const uint8_t> bytes =
                rest_.first(count < rest_.size() ? count : rest_.size());
        rest_ = rest_.subspan(bytes.size());
        return bytes;
    }

  private:
    std::span<const uint8_t> rest_;
};

// Ends the run as a finding.
inline void Require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "not true: %s\n", what);
    std::abort();
}
