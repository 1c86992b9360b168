#include "utf8.h"

#include <algorithm>
#include <array>

namespace reader {
namespace {

unsigned char At(std::string_view text, size_t i) {
    return static_cast<unsigned char>(text[i]);
}

// Whether a character of several bytes turns the direction of its neighbours, or ends a line.
bool Steers(std::string_view character) {
    constexpr std::array<std::string_view, 14> kSteering = {
            "\u061C", "\u200E", "\u200F", "\u2028", "\u2029", "\u202A", "\u202B",
            "\u202C", "\u202D", "\u202E", "\u2066", "\u2067", "\u2068", "\u2069",
    };
    return std::ranges::find(kSteering, character) != kSteering.end();
}

}  // namespace

Utf8Step NextUtf8(std::string_view text) {
    const unsigned char lead = At(text, 0);
    if (lead < 0x80) return {1, true};
    if (lead < 0xC2 || lead > 0xF4) return {1, false};
    const size_t size = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    // Neither longer than it need be, nor a surrogate, nor beyond U+10FFFF.
    unsigned char least = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    unsigned char most = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    for (size_t i = 1; i < size; ++i) {
        if (i == text.size() || At(text, i) < least || At(text, i) > most) return {i, false};
        least = 0x80;
        most = 0xBF;
    }
    return {size, true};
}

size_t WholeCharacters(std::string_view text) {
    const size_t from = text.size() - std::min<size_t>(3, text.size());
    for (size_t i = text.size(); i-- > from;) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if ((byte & 0xc0) == 0x80) continue;
        const size_t length = byte >= 0xf0 ? 4 : byte >= 0xe0 ? 3 : byte >= 0xc0 ? 2 : 1;
        return i + length > text.size() ? i : text.size();
    }
    return text.size();
}

std::string Printable(std::string_view text) {
    std::string printable;
    while (!text.empty()) {
        const Utf8Step step = NextUtf8(text);
        const unsigned char first = At(text, 0);
        const bool control = first < 0x20 || first == 0x7F ||
                             (first == 0xC2 && step.size == 2 && At(text, 1) < 0xA0) ||
                             (step.size > 1 && Steers(text.substr(0, step.size)));
        if (step.valid && !control) {
            printable += text.substr(0, step.size);
        } else {
            printable += '?';
        }
        text.remove_prefix(step.size);
    }
    return printable;
}

size_t Columns(std::string_view text) {
    return static_cast<size_t>(std::ranges::count_if(
            text, [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

}  // namespace reader
