#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "sink.h"

namespace reader {

// Markup that the page itself is made of. Only literals become markup, so that nothing out of a
// report can by mistake.
class Markup {
  public:
    consteval Markup(const char* literal) : text_(literal) {}  // NOLINT: it is meant to be implicit
    std::string_view text() const { return text_; }

  private:
    std::string_view text_;
};

// Writes HTML piece by piece. What comes out of a report goes through Text(), Attribute() or
// Base64(), and nothing in it is obeyed: not markup, not control characters, not what turns the
// direction of writing. What can't be seen is shown: control characters as their pictures (U+241B
// for escape) or as \u0085, bytes that are no UTF-8 as \xFF, and before all else that is invisible
// the style shows its code, so that the text stays what it is.
class Html {
  public:
    explicit Html(const Sink& sink) : sink_(sink) { buffer_.reserve(2 * kFull); }
    Html(const Html&) = delete;
    Html& operator=(const Html&) = delete;

    Html& operator<<(Markup markup) { return Append(markup.text()); }
    Html& operator<<(std::integral auto number) { return Append(std::to_string(number)); }
    // What the build has put into the program.
    Html& Built(std::string_view part) { return Append(part); }

    // Whole characters between tags.
    Html& Text(std::string_view text);
    // ` name="value"`
    Html& Attribute(Markup name, std::string_view value);
    Html& Base64(std::string_view bytes);
    // Always the same form, with so many digits after the point.
    Html& Fixed(double number, int digits);

    // False when the sink has refused; nothing is written after that.
    bool good() const { return good_; }
    void Flush();
    // How many bytes have been written so far.
    uint64_t written() const { return flushed_ + buffer_.size(); }

  private:
    static constexpr size_t kFull = size_t{256} * 1024;

    Html& Append(std::string_view bytes) {
        buffer_ += bytes;
        if (buffer_.size() >= kFull) Flush();
        return *this;
    }

    const Sink& sink_;
    std::string buffer_;
    uint64_t flushed_ = 0;
    bool good_ = true;
};

}  // namespace reader
