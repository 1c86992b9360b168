#pragma once

#include <string>
#include <string_view>

namespace platform {

// Appends the text with every control character, and every byte that is no UTF-8, as an escape (\n,
// \t, \x1b ...), so that it stays on one line and steers no terminal.
void AppendPrintable(std::string& out, std::string_view text);

}  // namespace platform
