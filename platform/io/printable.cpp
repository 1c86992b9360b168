#include "platform/printable.h"

namespace platform {

void AppendPrintable(std::string& out, std::string_view text) {
    constexpr char kHex[] = "0123456789abcdef";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7f) {
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
    }
}

}  // namespace platform
