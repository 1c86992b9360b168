#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace tev::dumpstate {

// Puts one sensor's data together from bytes that come in any order and more than once: knows its
// whole size from the start, takes each byte once, and tells when none is missing. A byte never
// goes missing again. Its memory is a byte and a bit for each byte of data, from the start.
class SensorBlackBoxBuffer {
  public:
    // Throws std::bad_alloc when the memory can't be had.
    SensorBlackBoxBuffer(uint8_t sensor_type, uint32_t size)
        : sensor_type_(sensor_type), data_(size), received_(size) {}

    // Stores the byte, unless that offset has been received: then false, and the first byte stays.
    // The offset is below Size().
    bool AddByte(uint32_t offset, int8_t byte) { return AddBytes(offset, &byte, 1) == 1; }

    // AddByte for each of `count` bytes, in order, up to the first that is refused. Returns how
    // many were stored. The whole range is within Size().
    uint32_t AddBytes(uint32_t offset, const void* bytes, uint32_t count) {
        const auto flags = received_.begin() + offset;
        const auto added = static_cast<uint32_t>(std::find(flags, flags + count, true) - flags);
        std::fill_n(flags, added, true);
        std::copy_n(static_cast<const int8_t*>(bytes), added, data_.begin() + offset);
        received_count_ += added;
        return added;
    }

    bool Done() const { return received_count_ == data_.size(); }
    uint8_t sensor_type() const { return sensor_type_; }
    uint32_t Size() const { return static_cast<uint32_t>(data_.size()); }
    const int8_t* Buffer() const { return data_.data(); }

  private:
    uint8_t sensor_type_;
    std::vector<int8_t> data_;
    std::vector<bool> received_;
    uint32_t received_count_ = 0;
};

}  // namespace tev::dumpstate
