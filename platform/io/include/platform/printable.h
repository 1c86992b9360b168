#pragma once

#include <string>
#include <string_view>

namespace platform {

// Appends the text with every control character as an escape (\n, \t, \x1b ...), so that it stays
// on one line. Bytes of 0x80 and above pass as they are: names may be UTF-8.
void AppendPrintable(std::string& out, std::string_view text);

}  // namespace platform
