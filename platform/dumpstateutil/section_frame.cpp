#include "section_frame.h"

#include <android/log.h>

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
    : fd_(fd), title_(Printable(title)), pending_("------ " + title_ + " (") {
    platform::AppendPrintable(pending_, detail);
    pending_ += ") ------\n";
}

void SectionFrame::Hold(std::string_view content) {
    constexpr size_t kFooter = 128;
    pending_.reserve(pending_.size() + content.size() + kFooter);
    pending_ += content;
}

bool SectionFrame::Begin() {
    const int error = Write();
    pending_.clear();
    return error != ETIMEDOUT && error != EAGAIN;
}

int SectionFrame::Close(std::string_view separator, std::string_view failure) {
    const auto now = std::chrono::steady_clock::now();
    pending_ += separator;
    if (!failure.empty()) {
        pending_ += "*** ";
        platform::AppendPrintable(pending_, failure);
        pending_ += '\n';
    }
    std::array<char, 64> duration;
    std::snprintf(duration.data(), duration.size(), "------ %.3fs was the duration of '",
                  std::chrono::duration<double>(now - start_).count());
    pending_.append(duration.data()).append(title_).append("' ------\n");
    return Write();
}

int SectionFrame::Write() {
    const int error =
            platform::WriteUntil(fd_, pending_, std::chrono::steady_clock::now() + kReportPatience);
    if (error == ETIMEDOUT) {
        __android_log_print(ANDROID_LOG_WARN, nullptr,
                            "%s: the reader has stopped, what it doesn't take is lost",
                            title_.c_str());
    }
    return error;
}

std::string Reason(int error) {
    return std::generic_category().message(error);
}

}  // namespace android::os::dumpstate
