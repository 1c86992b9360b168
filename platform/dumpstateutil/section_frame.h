#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace android::os::dumpstate {

// One section on its way into the report: the lines around it, and of its content what this process
// writes itself. It gathers what goes out in one write.
class SectionFrame {
  public:
    SectionFrame(int fd, std::string_view title, std::string_view detail);

    // Content for the next Flush() or Close(). How much is pending, the header counted.
    size_t Add(std::string_view content);

    // Writes what is pending; the header before anybody else writes into fd. Returns 0 or an errno
    // when some is lost. A reader that takes nothing for 30 s (5 s of standard output, which nobody
    // waits for), or is gone, is given up: /dev/null takes its place in fd.
    int Flush();

    // Writes what is pending, newlines that keep the section's last line apart, the failure line
    // unless it is empty, and the footer. Returns 0 or the first errno of all writes.
    int Close(std::string_view separator, std::string_view failure);

  private:
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    const int fd_;
    const std::string title_;
    std::string pending_;
    int error_ = 0;
};

// The text of an errno.
std::string Reason(int error);

}  // namespace android::os::dumpstate
