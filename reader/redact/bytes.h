#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace reader {

// Bytes that come in order.
class ByteSource {
  public:
    virtual ~ByteSource() = default;
    // The next bytes, `most` of them or fewer, valid until the next call; none at the end, or when
    // reading has failed, which error() tells.
    virtual std::string_view Read(size_t most) = 0;
    virtual std::string error() const { return ""; }
};

// Of a text, which outlives this.
class TextBytes : public ByteSource {
  public:
    explicit TextBytes(std::string_view text) : rest_(text) {}
    std::string_view Read(size_t most) override {
        const std::string_view piece = rest_.substr(0, most);
        rest_.remove_prefix(piece.size());
        return piece;
    }

  private:
    std::string_view rest_;
};

// Of an open file from where on it says. The descriptor is the caller's, and its offset stays.
class FileBytes : public ByteSource {
  public:
    FileBytes(int fd, uint64_t begin) : fd_(fd), at_(begin) {}
    std::string_view Read(size_t most) override;
    std::string error() const override { return error_; }

  private:
    const int fd_;
    uint64_t at_;
    std::vector<char> buffer_;
    std::string error_;
};

// So many of another's, after some that were read already.
class PartBytes : public ByteSource {
  public:
    PartBytes(ByteSource& from, std::string head, uint64_t size)
        : from_(from), head_(std::move(head)), left_(size) {}
    std::string_view Read(size_t most) override;
    std::string error() const override { return from_.error(); }
    // How many are still to come of those that were announced.
    uint64_t left() const { return left_; }

  private:
    ByteSource& from_;
    const std::string head_;
    size_t taken_ = 0;  // of the head
    uint64_t left_;
};

// Reads until there are so many, or no more. Then they are fewer.
std::string ReadExactly(ByteSource& from, size_t size);

// Bytes that are kept for a while: few in memory, many in a temporary file without a name.
class Spool : public ByteSource {
  public:
    Spool() = default;
    ~Spool() override;
    Spool(const Spool&) = delete;
    Spool& operator=(const Spool&) = delete;

    bool Write(std::string_view bytes);
    uint64_t size() const { return size_; }
    // From their beginning, after all have been written.
    void Rewind();
    std::string_view Read(size_t most) override;
    std::string error() const override { return error_; }

  private:
    int fd_ = -1;
    uint64_t size_ = 0;
    uint64_t read_ = 0;
    std::string memory_;  // of a file, what isn't written yet
    std::vector<char> buffer_;
    std::string error_;
};

}  // namespace reader
