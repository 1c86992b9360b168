#pragma once

#include <string>
#include <string_view>

namespace reader {

// A file without a name, for its owner alone and gone when it is closed, in TMPDIR or /tmp. Returns
// the descriptor, which is the caller's, or below 0 with errno.
int OpenTemporary();

// Writes all of it to a file; false with errno.
bool WriteAll(int fd, std::string_view bytes);

// The text of an errno.
std::string Reason(int error);

}  // namespace reader
