#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "bytes.h"
#include "sink.h"

struct archive;

namespace reader {

// What one file was packed into: gzip, xz or zstd.
enum class Packing { kNone, kGzip, kXz, kZstd };
Packing PackingOf(std::string_view beginning);

// The bytes that were packed, as far as they are no bomb.
class UnpackedBytes : public ByteSource {
  public:
    // What is packed outlives this. Its size bounds what may come out.
    UnpackedBytes(ByteSource& packed, uint64_t packed_size);
    ~UnpackedBytes() override;
    UnpackedBytes(const UnpackedBytes&) = delete;
    UnpackedBytes& operator=(const UnpackedBytes&) = delete;

    std::string_view Read(size_t most) override;
    std::string error() const override { return error_; }

  private:
    static ssize_t Take(archive* reader, void* self, const void** bytes);

    ByteSource& packed_;
    const uint64_t most_;
    uint64_t given_ = 0;
    bool empty_ = false;
    std::unique_ptr<archive, int (*)(archive*)> reader_;
    std::string buffer_;
    std::string error_;
};

// Packs the bytes, and tells "" or what went wrong.
std::string Pack(ByteSource& bytes, Packing packing, const Sink& sink);

}  // namespace reader
