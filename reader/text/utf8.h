#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace reader {

struct Utf8Step {
    size_t size;  // bytes
    bool valid;
};

// The character that the text, which isn't empty, begins with. What is no UTF-8 is taken in the
// steps that Unicode recommends: up to the byte that can't go on, each one U+FFFD.
Utf8Step NextUtf8(std::string_view text);

// How much of the text is whole characters; the rest, three bytes at most, is the beginning of one
// that the next bytes go on with.
size_t WholeCharacters(std::string_view text);

// The text for a terminal's line: what would steer it, or is no UTF-8, becomes a question mark.
std::string Printable(std::string_view text);

// How many columns the text takes, one a character.
size_t Columns(std::string_view text);

}  // namespace reader
