#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "text_range.h"

namespace reader {

// A report's bytes: once in order, and afterwards any of them by offset. Standard input that can't
// be read twice goes into a temporary file without a name, if that was asked for.
class Source {
  public:
    Source() = default;
    ~Source();
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    // "-" is standard input. With `again`, ReadAt() will be wanted. Returns "" or a sentence that
    // says what is wrong.
    std::string Open(const std::string& path, bool again);

    // The next bytes, valid until the next call; none at the end, or when reading has failed, which
    // error() tells.
    std::string_view Read();
    const std::string& error() const { return error_; }
    const std::string& name() const { return name_; }  // for messages

    // The bytes of the range that there are, appended to `bytes`. Only after Read() has come to the
    // end. False when they can't be read.
    bool ReadAt(TextRange range, std::string& bytes) const;

  private:
    std::string name_;
    int fd_ = -1;
    uint64_t begin_ = 0;  // where in fd_ the report begins
    int spool_fd_ = -1;   // the temporary file, if there is one
    std::vector<char> buffer_;
    std::string error_;
};

}  // namespace reader
