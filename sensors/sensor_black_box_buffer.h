#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace tev::dumpstate {

// Puts one sensor's data together from bytes that come in any order and more than once: knows its
// whole size from the start, takes each byte once, and tells when none is missing. A byte never
// goes missing again. Memory: the data and one bit a byte, of which the system commits no more than
// what has arrived, so a size that is announced and never sent costs address space only.
class SensorBlackBoxBuffer {
  public:
    // Throws std::bad_alloc when the memory can't be had.
    SensorBlackBoxBuffer(uint8_t sensor_type, uint32_t size);

    // Stores the byte, unless that offset has been received: then false, and the first byte stays.
    // The offset is below Size().
    bool AddByte(uint32_t offset, int8_t byte) { return AddBytes(offset, &byte, 1) == 1; }

    // AddByte for each of `count` bytes, in order, up to the first that is refused. Returns how
    // many were stored. The whole range is within Size().
    uint32_t AddBytes(uint32_t offset, const void* bytes, uint32_t count);

    bool Done() const { return received_count_ == size_; }
    uint8_t sensor_type() const { return sensor_type_; }
    uint32_t Size() const { return size_; }
    const int8_t* Buffer() const { return data_.get(); }

  private:
    struct Free {
        void operator()(void* memory) const { std::free(memory); }
    };
    template <typename T>
    using Zeroed = std::unique_ptr<T[], Free>;
    template <typename T>
    static Zeroed<T> Allocate(size_t count);

    uint8_t sensor_type_;
    uint32_t size_;
    Zeroed<int8_t> data_;
    Zeroed<uint64_t> received_;  // bit offset % 64 of word offset / 64
    uint32_t received_count_ = 0;
};

}  // namespace tev::dumpstate
