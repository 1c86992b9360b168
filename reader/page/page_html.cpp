#include "page_html.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <iterator>

#include "units.h"
#include "utf8.h"

namespace reader {
namespace {

enum class Place { kText, kAttribute };

enum : uint8_t { kPlain, kEntity, kControl, kHigh };

constexpr std::array<uint8_t, 256> kClasses = [] {
    std::array<uint8_t, 256> classes{};
    for (size_t c = 0; c < 0x20; ++c) classes[c] = kControl;
    for (size_t c = 0x80; c < 0x100; ++c) classes[c] = kHigh;
    classes[0x7f] = kControl;
    classes['\n'] = classes['\t'] = kPlain;
    for (const char c : {'&', '<', '>', '"', '\''})
        classes[static_cast<unsigned char>(c)] = kEntity;
    return classes;
}();

uint8_t ClassOf(char c) {
    return kClasses[static_cast<unsigned char>(c)];
}

void AppendEntity(std::string& out, char c, Place place) {
    if (c == '&') {
        out += "&amp;";
    } else if (c == '<') {
        out += "&lt;";
    } else if (c == '>') {
        out += "&gt;";
    } else if (place == Place::kText) {
        out += c;  // quotes end nothing between tags
    } else {
        out += c == '"' ? "&quot;" : "&#39;";
    }
}

// Of a whole character that is not ASCII.
char32_t CodeOf(std::string_view character) {
    char32_t code = static_cast<unsigned char>(character[0]) & (0xffU >> (character.size() + 1));
    for (const char c : character.substr(1))
        code = code << 6 | (static_cast<unsigned char>(c) & 0x3fU);
    return code;
}

struct Interval {
    char32_t first;
    char32_t last;
};

// What comes first of what is not ASCII, from U+0080 on.
constexpr char32_t kLastControl = 0x9f;

// What can't be seen, or changes how its neighbours are: soft hyphen, directions and isolates,
// joiners, line and paragraph separators, byte order mark, annotations, tags.
constexpr Interval kInvisible[] = {
        {0xad, 0xad},     {0x61c, 0x61c},   {0x180e, 0x180e}, {0x200b, 0x200f}, {0x2028, 0x202e},
        {0x2060, 0x206f}, {0xfeff, 0xfeff}, {0xfff9, 0xfffb}, {0xfffe, 0xffff}, {0xe0000, 0xe007f},
};

bool IsInvisible(char32_t code) {
    return std::ranges::any_of(
            kInvisible, [code](const Interval& i) { return code >= i.first && code <= i.last; });
}

void AppendHex(std::string& out, const char* format, unsigned code) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), format, code);
    out += text.data();
}

// The picture of a control character: three bytes of UTF-8, from U+2400 on.
void AppendPicture(std::string& out, char control) {
    out += "\xe2\x90";
    out += static_cast<char>(control == 0x7f ? 0xa1 : 0x80 + control);
}

// A character that is not ASCII, or bytes that are none.
template <typename Mark>
void AppendHigh(std::string& out, std::string_view bytes, bool valid, Place place, Mark mark) {
    if (!valid) {
        mark(true);
        for (const char c : bytes) AppendHex(out, "\\x%02X", static_cast<unsigned char>(c));
    } else if (const char32_t code = CodeOf(bytes); code <= kLastControl) {
        mark(true);
        AppendHex(out, "\\u%04X", code);
    } else if (IsInvisible(code) && place == Place::kText) {
        mark(false);
        // The style shows the code before it, and keeps its effect within the element.
        AppendHex(out, "<i data-code=\"%04X\">", code);
        (out += bytes) += "</i>";
    } else {
        mark(false);
        out += bytes;
    }
}

void AppendShown(std::string& out, std::string_view text, Place place) {
    bool marked = false;  // within an element for what is only shown
    const auto mark = [&](bool on) {
        if (on != marked && place == Place::kText) out += on ? "<i>" : "</i>";
        marked = on;
    };
    while (!text.empty()) {
        const auto* const end =
                std::ranges::find_if(text, [](char c) { return ClassOf(c) != kPlain; });
        const auto plain = static_cast<size_t>(end - text.begin());
        if (plain > 0) {
            mark(false);
            out += text.substr(0, plain);
            text.remove_prefix(plain);
            continue;
        }
        const char c = text.front();
        size_t length = 1;
        if (ClassOf(c) == kEntity) {
            mark(false);
            AppendEntity(out, c, place);
        } else if (ClassOf(c) == kControl) {
            mark(true);
            AppendPicture(out, c);
        } else {
            const Utf8Step step = NextUtf8(text);
            length = step.size;
            AppendHigh(out, text.substr(0, length), step.valid, place, mark);
        }
        text.remove_prefix(length);
    }
    mark(false);
}

}  // namespace

Html& Html::Text(std::string_view text) {
    while (!text.empty()) {
        std::string_view piece = text.substr(0, kFull);
        if (piece.size() < text.size()) piece = piece.substr(0, WholeCharacters(piece));
        AppendShown(buffer_, piece, Place::kText);
        if (buffer_.size() >= kFull) Flush();
        text.remove_prefix(piece.size());
    }
    return *this;
}

Html& Html::Attribute(Markup name, std::string_view value) {
    buffer_ += ' ';
    buffer_ += name.text();
    buffer_ += "=\"";
    AppendShown(buffer_, value, Place::kAttribute);
    return Append("\"");
}

Html& Html::Base64(std::string_view bytes) {
    constexpr std::string_view kDigits =
            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    while (!bytes.empty()) {
        const std::string_view piece = bytes.substr(0, kFull / 4 * 3);
        const size_t at = buffer_.size();
        buffer_.resize(at + (piece.size() + 2) / 3 * 4, '=');
        char* out = buffer_.data() + at;
        for (size_t i = 0; i < piece.size(); i += 3) {
            uint32_t bits = 0;
            const size_t some = std::min<size_t>(3, piece.size() - i);
            for (size_t k = 0; k < some; ++k) {
                bits |= uint32_t{static_cast<unsigned char>(piece[i + k])} << (16 - 8 * k);
            }
            for (size_t k = 0; k <= some; ++k) out[k] = kDigits[bits >> (18 - 6 * k) & 63];
            out += 4;
        }
        if (buffer_.size() >= kFull) Flush();
        bytes.remove_prefix(piece.size());
    }
    return *this;
}

Html& Html::Fixed(double number, int digits) {
    return Append(reader::Fixed(number, digits));
}

void Html::Flush() {
    if (good_ && !buffer_.empty()) good_ = sink_(buffer_);
    flushed_ += buffer_.size();
    buffer_.clear();
}

}  // namespace reader
