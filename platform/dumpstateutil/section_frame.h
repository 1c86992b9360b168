#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "platform/bounded_write.h"

namespace android::os::dumpstate {

// How long the service waits for a reader that takes nothing before it gives a line up.
inline constexpr std::chrono::seconds kReaderPatience{5};

// The lines around one section. Construction writes the header, Close() the footer.
class SectionFrame {
  public:
    SectionFrame(int fd, std::string_view title, std::string_view detail);

    // Writes an optional newline that ends the section's last line, the failure line unless it is
    // empty, and the footer, in one write.
    void Close(bool end_line, std::string_view failure);

    // The reader took not even the header within kReaderPatience: don't wait for it again.
    bool reader_stuck() const { return reader_stuck_; }

  private:
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    const int fd_;
    const std::string title_;
    bool reader_stuck_ = false;
};

// The text of an errno.
std::string Reason(int error);

}  // namespace android::os::dumpstate
