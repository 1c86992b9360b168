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
    // The first bytes, some thousand at most.
    const std::string& beginning() const { return beginning_; }

    // The bytes of the range that there are, appended to `bytes`. Of what was opened for that, or
    // is kept, or was read last. False when they can't be read.
    bool ReadAt(TextRange range, std::string& bytes) const;

    // Keeps what has been read from there on, and nothing before, so that ReadAt() can have it
    // while more is read. Before each Read(); a file that can be read twice is not copied. False
    // when that has failed, which error() tells.
    bool Keep(uint64_t from);

  private:
    bool Spool(std::string_view bytes);
    std::string_view Buffered(TextRange range) const;

    std::string name_;
    std::string beginning_;
    int fd_ = -1;
    uint64_t begin_ = 0;  // where in fd_ the report begins
    bool seekable_ = false;
    bool again_ = false;
    int spool_fd_ = -1;  // the temporary file, if there is one
    TextRange spooled_;  // what is in it
    std::vector<char> buffer_;
    TextRange buffered_;  // what is in that
    std::string error_;
};

}  // namespace reader
