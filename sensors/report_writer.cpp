#include "report_writer.h"

#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <patient_write.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>

#include "log.h"

namespace tev::dumpstate {
namespace {

using android::base::unique_fd;

constexpr std::chrono::seconds kReportPatience{30};

// Nobody waits again for a reader that was waited for in vain, or meets one that is gone: what
// comes after runs as usual, into /dev/null.
void GiveUpReader(int fd) {
    const unique_fd null(open("/dev/null", O_WRONLY | O_CLOEXEC));
    if (null.get() >= 0) dup3(null.get(), fd, O_CLOEXEC);
}

bool Write(int fd, std::string_view text) {
    if (android::chre::writePatiently(fd, text, kReportPatience)) return true;
    const int error = errno;
    __android_log_print(ANDROID_LOG_WARN, kLogTag, "The report is cut here: %s",
                        std::strerror(error));
    if (error == ETIMEDOUT || error == EPIPE) GiveUpReader(fd);
    return false;
}

}  // namespace

char* ReportWriter::BeginLine() {
    if (text_.size() - size_ < kLongestLine) Flush();
    return text_.data() + size_;
}

void ReportWriter::Print(const char* format, ...) {
    char* const line = BeginLine();
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(line, kLongestLine, format, arguments);
    va_end(arguments);
    EndLine(line + std::clamp<int>(length, 0, kLongestLine - 1));
}

void ReportWriter::Flush() {
    const std::string_view text(text_.data(), std::exchange(size_, 0));
    if (!lost_) lost_ = !Write(fd_, text);
}

void PrintToReport(int fd, const char* format, ...) {
    std::array<char, ReportWriter::kLongestLine> text;
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    Write(fd, text.data());
}

}  // namespace tev::dumpstate
