#include "sensor_black_box_buffer.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>

namespace tev::dumpstate {
namespace {

constexpr uint32_t kFlags = 64;  // in a word

// `count` ones, 1 to 64, from bit `first` on.
uint64_t Mask(uint32_t first, uint32_t count) {
    return (~uint64_t{0} >> (kFlags - count)) << first;
}

}  // namespace

// calloc and not a vector: fresh pages of the system are zero already, and stay uncommitted until
// they are written.
template <typename T>
SensorBlackBoxBuffer::Zeroed<T> SensorBlackBoxBuffer::Allocate(size_t count) {
    Zeroed<T> memory(static_cast<T*>(std::calloc(std::max<size_t>(count, 1), sizeof(T))));
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

SensorBlackBoxBuffer::SensorBlackBoxBuffer(uint8_t sensor_type, uint32_t size)
    : sensor_type_(sensor_type),
      size_(size),
      data_(Allocate<int8_t>(size)),
      received_(Allocate<uint64_t>(size / kFlags + (size % kFlags != 0 ? 1 : 0))) {}

uint32_t SensorBlackBoxBuffer::AddBytes(uint32_t offset, const void* bytes, uint32_t count) {
    uint32_t added = 0;
    while (added < count) {
        uint64_t& flags = received_[(offset + added) / kFlags];
        const uint32_t first = (offset + added) % kFlags;
        const uint32_t run = std::min(kFlags - first, count - added);
        const uint64_t taken = (flags & Mask(first, run)) >> first;
        const uint32_t fresh = std::min(run, static_cast<uint32_t>(std::countr_zero(taken)));
        if (fresh > 0) flags |= Mask(first, fresh);
        added += fresh;
        if (fresh < run) break;
    }
    if (added > 0) std::memcpy(data_.get() + offset, bytes, added);
    received_count_ += added;
    return added;
}

}  // namespace tev::dumpstate
