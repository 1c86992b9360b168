#include "report_writer.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>

#include "log.h"

namespace tev::dumpstate {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience{5};

}  // namespace

// The text's memory stays as it is found: most writers hold a few lines.
ReportWriter::ReportWriter(int fd) : output_(fd) {}

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

ssize_t ReportWriter::WriteSome(std::string_view text) const {
    using std::chrono::milliseconds;
    const Clock::time_point deadline = Clock::now() + kPatience;
    for (Clock::duration left = kPatience; left > left.zero(); left = deadline - Clock::now()) {
        const auto wait = std::chrono::ceil<milliseconds>(left).count();
        if (!output_.WaitWritable(static_cast<int>(wait))) return -1;
        const ssize_t written = output_.Write(text.data(), text.size());
        // Where somebody else took the room between the poll and the write, the next poll waits.
        if (written >= 0 || (errno != EINTR && errno != EAGAIN)) return written;
    }
    errno = ETIMEDOUT;
    return -1;
}

void ReportWriter::Flush() {
    std::string_view text(text_.data(), std::exchange(size_, 0));
    while (!text.empty() && !lost_) {
        const ssize_t written = WriteSome(text);
        if (written > 0) {
            text.remove_prefix(static_cast<size_t>(written));
        } else {
            lost_ = true;
            __android_log_print(ANDROID_LOG_WARN, kLogTag, "The report is cut here: %s",
                                std::strerror(errno));
        }
    }
}

}  // namespace tev::dumpstate
