#pragma once

#include <functional>
#include <string_view>

namespace reader {

// Takes the next bytes of what is written; false when that has failed, after which nothing more is
// written.
using Sink = std::function<bool(std::string_view)>;

}  // namespace reader
