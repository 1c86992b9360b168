#include "section_frame.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <system_error>

#include "platform/printable.h"

namespace android::os::dumpstate {
namespace {

std::string Printable(std::string_view text) {
    std::string line;
    platform::AppendPrintable(line, text);
    return line;
}

}  // namespace

SectionFrame::SectionFrame(int fd, std::string_view title, std::string_view detail)
    : fd_(fd), title_(Printable(title)) {
    std::string header = "------ " + title_ + " (";
    platform::AppendPrintable(header, detail);
    header += ") ------\n";
    reader_stuck_ = platform::WriteUntil(fd_, header, start_ + kReaderPatience) == ETIMEDOUT;
}

void SectionFrame::Close(bool end_line, std::string_view failure) {
    const auto now = std::chrono::steady_clock::now();
    std::string footer = end_line ? "\n" : "";
    if (!failure.empty()) {
        footer += "*** ";
        platform::AppendPrintable(footer, failure);
        footer += '\n';
    }
    std::array<char, 64> duration;
    std::snprintf(duration.data(), duration.size(), "------ %.3fs was the duration of '",
                  std::chrono::duration<double>(now - start_).count());
    footer.append(duration.data()).append(title_).append("' ------\n");
    platform::WriteUntil(fd_, footer, reader_stuck_ ? now : now + kReaderPatience);
}

std::string Reason(int error) {
    return std::generic_category().message(error);
}

}  // namespace android::os::dumpstate
