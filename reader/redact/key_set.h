#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace reader {

// Many texts that are looked for at once, each with a number.
class KeySet {
  public:
    static constexpr size_t kShortest = 4;

    bool empty() const { return numbers_.empty(); }
    // A key of fewer bytes than kShortest is left out; of two that are the same the first stays.
    void Add(const std::string& key, uint32_t number);

    // Calls take(position, size, number) for every key in the text, the longest of a place first,
    // until it returns true, which ends that place.
    template <typename Take>
    void Find(std::string_view text, Take take) const {
        if (empty()) return;
        for (size_t at = 0; at + kShortest <= text.size(); ++at) {
            const uint32_t beginning = Beginning(text.data() + at);
            if ((filter_[Slot(beginning)] >> (beginning & 63) & 1) != 0)
                FindAt(text, at, beginning, take);
        }
    }

  private:
    struct Hash : std::hash<std::string_view> {
        using is_transparent = void;
    };

    static uint32_t Beginning(const char* text) {
        const auto byte = [text](int i) { return uint32_t{static_cast<unsigned char>(text[i])}; };
        return (byte(0) | byte(1) << 8 | byte(2) << 16 | byte(3) << 24) * 0x9E3779B1U;
    }
    static size_t Slot(uint32_t beginning) { return beginning >> 20; }

    template <typename Take>
    void FindAt(std::string_view text, size_t at, uint32_t beginning, Take& take) const {
        const auto sizes = sizes_.find(beginning);
        if (sizes == sizes_.end()) return;
        for (const auto& [size, any] : sizes->second) {
            if (at + size > text.size()) continue;
            const auto number = numbers_.find(text.substr(at, size));
            if (number != numbers_.end() && take(at, size, number->second)) return;
        }
    }

    std::vector<uint64_t> filter_ = std::vector<uint64_t>(4096);
    std::unordered_map<uint32_t, std::map<size_t, bool, std::greater<>>> sizes_;
    std::unordered_map<std::string, uint32_t, Hash, std::equal_to<>> numbers_;
};

}  // namespace reader
