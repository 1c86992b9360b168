#include "platform/printable.h"

namespace platform {
namespace {

// The length of the UTF-8 sequence of several bytes at the front of a text; 0 where there is none,
// or one for a control character (U+0080 to U+009F).
size_t SequenceLength(std::string_view text) {
    const auto byte = [text](size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    };
    const unsigned lead = byte(0);
    const size_t length = lead < 0xc2 || lead > 0xf4 ? 0 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
    // The second byte's bounds keep controls, overlong forms, surrogates and what is beyond
    // U+10FFFF out.
    const unsigned least = lead == 0xc2 || lead == 0xe0 ? 0xa0 : lead == 0xf0 ? 0x90 : 0x80;
    const unsigned most = lead == 0xed ? 0x9f : lead == 0xf4 ? 0x8f : 0xbf;
    if (length == 0 || byte(1) < least || byte(1) > most) return 0;
    for (size_t i = 2; i < length; ++i) {
        if ((byte(i) & 0xc0) != 0x80) return 0;
    }
    return length;
}

}  // namespace

void AppendPrintable(std::string& out, std::string_view text) {
    constexpr char kHex[] = "0123456789abcdef";
    while (!text.empty()) {
        const size_t sequence = SequenceLength(text);
        const char c = text.front();
        const auto byte = static_cast<unsigned char>(c);
        if (sequence > 0) {
            out += text.substr(0, sequence);
        } else if (byte >= 0x20 && byte < 0x7f) {
            out += c;
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\t') {
            out += "\\t";
        } else if (c == '\r') {
            out += "\\r";
        } else {
            out += {'\\', 'x', kHex[byte >> 4], kHex[byte & 0xf]};
        }
        text.remove_prefix(sequence > 0 ? sequence : 1);
    }
}

}  // namespace platform
