#pragma once

#include <exception>
#include <string>

namespace reader {

// What the JSON library says of a text that doesn't fit, without its own numbers of faults.
inline std::string JsonFault(const std::exception& fault) {
    const std::string what = fault.what();
    const size_t numbered = what.starts_with("[json.") ? what.find("] ") : std::string::npos;
    return numbered == std::string::npos ? what : what.substr(numbered + 2);
}

}  // namespace reader
