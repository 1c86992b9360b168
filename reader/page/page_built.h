#pragma once

#include <string_view>

namespace reader {

// The page around what a report says, as the build puts it together from page/: up to the end of
// the styles, and from the first script on.
std::string_view PageBegin();
std::string_view PageEnd();

}  // namespace reader
