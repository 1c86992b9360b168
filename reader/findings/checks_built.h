#pragma once

#include <string_view>

namespace reader {

// checks.toml, as the build puts it into the program.
std::string_view ChecksBuilt();

}  // namespace reader
