#include "notation.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>

#include "identifier.h"

namespace reader {
namespace {

struct Escape {
    char character;
    size_t size;
};

std::optional<Escape> Number(std::string_view text, size_t prefix, size_t digits, int base,
                             size_t suffix = 0) {
    if (text.size() < prefix + digits) return {};
    unsigned number = 0;
    const char* const begin = text.data() + prefix;
    const auto [end, error] = std::from_chars(begin, begin + digits, number, base);
    if (error != std::errc() || end != begin + digits || number == 0 || number > 0xff) return {};
    return Escape{static_cast<char>(number), prefix + digits + suffix};
}

std::optional<Escape> XmlEscape(std::string_view text) {
    constexpr size_t kLongest = 10;
    const size_t end = text.substr(0, kLongest).find(';');
    if (end == std::string_view::npos) return {};
    if (text.starts_with("&#x") || text.starts_with("&#X")) return Number(text, 3, end - 3, 16, 1);
    if (text.starts_with("&#")) return Number(text, 2, end - 2, 10, 1);
    struct Name {
        std::string_view name;
        char character;
    };
    constexpr Name kNames[] = {{"amp", '&'},   {"lt", '<'},     {"gt", '>'},
                               {"quot", '"'},  {"apos", '\''},  {"nbsp", ' '},
                               {"colon", ':'}, {"commat", '@'}, {"period", '.'}};
    const auto name = std::ranges::find(kNames, text.substr(1, end - 1), &Name::name);
    if (name == std::end(kNames)) return {};
    return Escape{name->character, end + 1};
}

std::optional<Escape> BackslashEscape(std::string_view text) {
    if (text.size() < 2) return {};
    switch (const char c = text[1]) {
        case 'n':
        case 'r':
        case 't':
            return Escape{'\n', 2};
        case 'x':
            return Number(text, 2, 2, 16);
        case 'u':
            return Number(text, 2, 4, 16);
        default:
            if (c >= '0' && c <= '3') return Number(text, 1, 3, 8);
            if (IsAlnum(c) || c <= ' ' || c >= 0x7f) return {};
            return Escape{c, 2};
    }
}

std::optional<Escape> EscapeAt(std::string_view text) {
    switch (text.front()) {
        case '%':
            return Number(text, 1, 2, 16);
        case '&':
            return XmlEscape(text);
        case '\\':
            return BackslashEscape(text);
        default:
            return {};
    }
}

constexpr std::array<bool, 256> MakeIntroducers() {
    std::array<bool, 256> introducers{};
    for (const char c : {'%', '&', '\\'}) introducers[static_cast<unsigned char>(c)] = true;
    return introducers;
}
constexpr std::array<bool, 256> kIntroducers = MakeIntroducers();

size_t NextEscape(std::string_view text, size_t from) {
    for (; from < text.size(); ++from) {
        const bool begins = kIntroducers[static_cast<unsigned char>(text[from])];
        if (begins && EscapeAt(text.substr(from))) return from;
    }
    return std::string_view::npos;
}

bool IsText(char c) {
    return c >= ' ' && c < 0x7f;
}

}  // namespace

// False when nothing in it is escaped.
bool Notation::Decode(const Notation& from) {
    const std::string_view text = from.text();
    size_t next = NextEscape(text, 0);
    if (next == std::string_view::npos) return false;
    text_.reserve(text.size());
    at_.reserve(text.size() + 1);
    for (size_t i = 0; i < text.size();) {
        at_.push_back(from.RawAt(i));
        if (i != next) {
            text_ += text[i++];
            continue;
        }
        const Escape escape = *EscapeAt(text.substr(i));
        text_ += escape.character;
        i += escape.size;
        next = NextEscape(text, i);
    }
    at_.push_back(from.RawAt(text.size()));
    return true;
}

void FindEscapes(std::string_view text, size_t offset, std::deque<Notation>& found) {
    constexpr size_t kAround = 512;
    constexpr int kLevels = 3;
    for (size_t at = NextEscape(text, 0); at != std::string_view::npos;) {
        const size_t least = at - std::min(at, kAround);
        const size_t line = text.substr(0, at).rfind('\n');
        const size_t begin = line == std::string_view::npos ? least : std::max(least, line + 1);
        // As far as one escape is near the next, in one line.
        size_t end = at;
        while (at != std::string_view::npos && at <= end) {
            end = std::min({text.size(), at + kAround, std::min(text.find('\n', at), text.size())});
            at = NextEscape(text, at + 1);
        }
        Notation decoded(text.substr(begin, end - begin), offset + begin);
        for (int level = 0; level < kLevels; ++level) {
            Notation again;
            if (!again.Decode(decoded)) break;
            found.push_back(again);
            decoded = std::move(again);
        }
    }
}

void FindWide(std::string_view text, std::deque<Notation>& found) {
    constexpr size_t kShortest = 4;
    for (size_t zero = text.find('\0'); zero != std::string_view::npos;) {
        size_t last = zero + 1;
        for (const size_t low : {size_t{0}, size_t{1}}) {
            if (low == 0 && zero == 0) continue;
            Notation wide;
            wide.order_ = low == 0 ? Notation::Order::kLowFirst : Notation::Order::kHighFirst;
            size_t end = low == 0 ? zero - 1 : zero;
            for (; end + 1 < text.size() && IsText(text[end + low]) && text[end + 1 - low] == '\0';
                 end += 2) {
                wide.text_ += text[end + low];
                wide.at_.push_back(end);
            }
            wide.at_.push_back(end);
            last = std::max(last, end);
            if (wide.text_.size() >= kShortest) found.push_back(std::move(wide));
        }
        zero = text.find('\0', last);
    }
}

}  // namespace reader
