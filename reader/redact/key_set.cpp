#include "key_set.h"

namespace reader {

void KeySet::Add(const std::string& key, uint32_t number) {
    if (key.size() < kShortest || !numbers_.emplace(key, number).second) return;
    const uint32_t beginning = Beginning(key.data());
    filter_[Slot(beginning)] |= uint64_t{1} << (beginning & 63);
    sizes_[beginning].emplace(key.size(), true);
}

}  // namespace reader
