#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "platform/bounded_write.h"

namespace android::os::dumpstate {

// How long a section waits for a report's reader that takes nothing.
inline constexpr std::chrono::seconds kReportPatience{5};

// The lines around one section, and its content where that is small enough to go out with them in
// one write.
class SectionFrame {
  public:
    SectionFrame(int fd, std::string_view title, std::string_view detail);

    // Writes the header and what is held, and has to come before anybody else writes into fd. False
    // when the reader is stuck: what else goes there is lost.
    bool Begin();

    // Content that the next Begin() or Close() writes.
    void Hold(std::string_view content);

    // Writes what is pending, newlines that keep the section's last line apart, the failure line
    // unless it is empty, and the footer, in one write. Returns 0 or an errno.
    int Close(std::string_view separator, std::string_view failure);

  private:
    int Write();

    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    const int fd_;
    const std::string title_;
    std::string pending_;  // at first the header
};

// The text of an errno.
std::string Reason(int error);

}  // namespace android::os::dumpstate
