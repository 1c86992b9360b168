#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace reader {

// A stretch of bytes as the characters that it stands for: "%3A", "\u003a", "&#58;" and ':' are one
// character, and so are two bytes of UTF-16.
class Notation {
  public:
    // As it stands, from an offset within what is looked at.
    Notation(std::string_view bytes, size_t offset) : plain_(bytes), offset_(offset) {}

    std::string_view text() const { return at_.empty() ? plain_ : text_; }
    // Where the character begins, or the last one ends.
    size_t RawAt(size_t character) const {
        return at_.empty() ? offset_ + character : at_[character];
    }
    // Whether any of these is written in more than its own byte.
    bool IsEscaped(size_t begin, size_t end) const {
        return !at_.empty() && RawAt(end) - RawAt(begin) > end - begin;
    }
    // How the character is written here.
    void Encode(char c, std::string& bytes) const {
        if (order_ == Order::kHighFirst) bytes += '\0';
        bytes += c;
        if (order_ == Order::kLowFirst) bytes += '\0';
    }

  private:
    friend void FindEscapes(std::string_view, size_t, std::deque<Notation>&);
    friend void FindWide(std::string_view, std::deque<Notation>&);
    enum class Order { kOneByte, kLowFirst, kHighFirst };

    Notation() = default;
    bool Decode(const Notation& from);

    std::string_view plain_;
    size_t offset_ = 0;
    std::string text_;
    std::vector<size_t> at_;
    Order order_ = Order::kOneByte;
};

// Appends the lines around what is escaped by percent signs, backslashes or as XML does, decoded,
// and once more where that was escaped in turn. Offsets count from so many bytes before the text.
void FindEscapes(std::string_view text, size_t offset, std::deque<Notation>& found);

// Appends the runs that may be UTF-16, in either byte order.
void FindWide(std::string_view text, std::deque<Notation>& found);

}  // namespace reader
