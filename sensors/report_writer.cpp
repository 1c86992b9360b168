#include "report_writer.h"

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

using android::chre::NonblockingOutput;

constexpr std::chrono::seconds kReportPatience{5};

bool WriteOrTell(const NonblockingOutput& output, std::string_view text) {
    if (output.Write(text, kReportPatience)) return true;
    __android_log_print(ANDROID_LOG_WARN, kLogTag, "The report is cut here: %s",
                        std::strerror(errno));
    return false;
}

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

void ReportWriter::Flush() {
    const std::string_view text(text_.data(), std::exchange(size_, 0));
    if (!lost_) lost_ = !WriteOrTell(output_, text);
}

void PrintToReport(int fd, const char* format, ...) {
    std::array<char, ReportWriter::kLongestLine> text;
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    WriteOrTell(NonblockingOutput(fd), text.data());
}

}  // namespace tev::dumpstate
