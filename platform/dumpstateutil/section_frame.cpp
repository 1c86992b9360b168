#include "section_frame.h"

#include <android/log.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <system_error>

#include "platform/bounded_write.h"
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

size_t SectionFrame::Add(std::string_view content) {
    pending_ += content;
    return pending_.size();
}

int SectionFrame::Flush() {
    using namespace std::chrono_literals;
    const int error = platform::WriteWithin(fd_ == STDOUT_FILENO ? 5s : 30s, fd_, pending_);
    pending_.clear();
    if (error != 0) {
        const std::string why = error == ETIMEDOUT ? "its reader has stopped" : Reason(error);
        __android_log_print(ANDROID_LOG_WARN, nullptr, "%s: the output is cut here: %s",
                            title_.c_str(), why.c_str());
    }
    if (error == ETIMEDOUT || error == EPIPE) platform::GiveUpReader(fd_);
    if (error_ == 0) error_ = error;
    return error;
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
    Flush();
    return error_;
}

std::string Reason(int error) {
    return std::generic_category().message(error);
}

}  // namespace android::os::dumpstate
